// Reports and figures of a tracked process that goes on running.
#pragma once

#include <cstdint>
#include <string>

#include "ktl_mem/export.h"
#include "ktl_mem/tracking.h"

// The process at one moment. Bytes are allocated sizes. Current values and peak are 0 when the word records
// none.
struct MEM_TRACKING_FIGURES {
    MEM_TRACKING_GRANULARITY word = MEM_TRACKING_NONE;  // what is tracked
    std::uint64_t events = 0;                           // allocations and frees that were tracked
    std::int64_t current_bytes = 0;                     // allocated and not yet freed
    std::int64_t current_blocks = 0;
    std::int64_t peak_bytes = 0;  // the highest recorded, or the current value when that is higher
    std::int64_t own_bytes = 0;   // what the tracker itself has allocated and not freed
};

// False, with `out` untouched, before the tracker's start and after its end. Reads counters one by one while
// others move them. Allocates nothing; safe from any thread, also in an allocator hook.
KTL_MEM_API bool mem_get_tracking_figures(MEM_TRACKING_FIGURES& out);

// Writes the files that mem_shutdown_tbb_tracking would write now into the folder, which must exist, and
// tracking goes on. Takes a sample of each timeline that is reported. All files show one moment: events of
// other threads wait until they are written. Runs on a stack of its own.
//
// False, and nothing complete written, when the tracker does not run, when reports are being written already,
// when the calling thread is inside the tracker, or when memory runs out. A file that cannot be written, or
// not to its end, is told by its missing last line alone. Safe from any thread that holds no lock which a
// thread that allocates can wait for; allocates, so not to be called inside the allocator's own code.
KTL_MEM_API bool mem_write_running_reports(const std::string& folder);
