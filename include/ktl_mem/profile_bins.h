// Profile bins: marks for stretches of the run of the whole process, and for the memory that belongs to them.
//
// A bin has a name and may set a tag, the coarser name. From open to close every tracked allocation of every
// thread is counted against the current bin and the current tag; a free comes off the bin and the tag that
// were current at the allocation. The full name of a bin is the current tag, "::", and the bin's name; while
// no tag is open the current tag is "Root". Bins nest strictly, and a tag stays current until its bin closes.
//
// There is one stack of bins for the process, not one for each thread: it describes phases. Calls must come
// from one thread at a time, and not from an allocator hook. Allocations, reports and snapshots of other
// threads may go on meanwhile; one that races with an open or a close may count for the bin before it.
//
// With tracking off the calls cost one test each.
#pragma once

#include <cstdint>
#include <string>

#include "ktl_mem/export.h"

// An empty tag leaves the current tag as it is. While modules are tracked, a tag that is not empty also
// becomes the timeline label (ktl_mem/timelines.h). Any text is taken; a tab in it breaks the columns of the
// reports. At most 65,536 different full names may be in use as current bins. Only the samples of the
// tag timeline test that: one that is taken while a bin past the limit is current is an internal error and
// ends the process.
KTL_MEM_API void mem_open_profile_bin(const std::string& name, const std::string& tag);

// Closes the latest open bin. `tag` is the tag of its open. The three results must not be null. In bytes of
// tracked live blocks of the process: at the open, now, and the highest in between, bins nested inside
// included. All are 0 while bins do not measure (mem_get_tbb_memory_tracking_enabled), and they stand still
// while the statistics do (ktl_mem/statistics.h).
// A close without an open, or with another tag that is not empty, is an internal error and ends the process.
KTL_MEM_API void mem_close_profile_bin(const std::string& tag, std::uint64_t* start_bytes,
                                       std::uint64_t* end_bytes, std::uint64_t* peak_bytes);

// From now on bins leave the timeline label alone, for good. The label in force stays.
KTL_MEM_API void mem_disable_profile_bin_tag_timeline_labels();
