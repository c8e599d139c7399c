// What the tracker knows of a block or a module while the program runs, and the control of its peaks.
//
// Before the tracker's start every call here is an internal error, which ends the process; after its end they
// find nothing and change nothing. All are safe from any thread. None may be called in an allocator hook.
#pragma once

#include <string>

#include "ktl_mem/export.h"
#include "ktl_mem/records.h"

// The call site that the block at `address` is charged to; a null address asks for what could not be
// attributed. True when `out` was filled in; false, with `out` untouched, for an address that is not the
// start of a live tracked block. The copy belongs to one moment.
KTL_MEM_API bool mem_get_address_tracker(const void* address, MEM_ADDRESS_TRACKER& out);

// The counters of a module, by its exact name ("OTHER" for what has no module). True when `out` was filled
// in.
KTL_MEM_API bool mem_get_module_tracker(const std::string& module, MEMORY_TRACKER_BASE& out);

// Keeps the best peak recorded so far and starts a new search; the final reports show the highest of all.
// Takes a sample of every timeline. When memory runs out in it the process ends (ktl_mem/out_of_memory.h).
KTL_MEM_API void mem_tbb_tracking_flush_peak();

// Forgets all that is charged to call sites, modules and tags. Blocks that are alive stay alive; their frees
// are booked against what could not be attributed.
KTL_MEM_API void mem_reset_tracking_entries();

// The path of calls that holds the most bytes, with MEM_TRACKING_CALL_PATHS: now, or at the exact peak, when
// all tracked blocks together held the most bytes ever. A line "N bytes in N blocks", and a line for each
// function, innermost first: its name, its file and line in round brackets, its module in square ones, as far
// as they are known; no line end behind the last. Empty when no path holds anything, and before the tracker's
// start. Others may allocate meanwhile; the call reads the figures of all paths and may take milliseconds.
enum class MEM_CALL_PATH_MOMENT { NOW, PEAK };
KTL_MEM_API std::string mem_get_largest_call_path(MEM_CALL_PATH_MOMENT moment);
