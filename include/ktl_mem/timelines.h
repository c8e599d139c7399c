// Timelines: what the host can say to them. Both calls are safe from any thread, allocate, and must not be
// made in an allocator hook.
#pragma once

#include <string>

#include "ktl_mem/export.h"

// The text that labels the rows of the module timelines from now on, "Other" when it is empty. The text is
// copied. It is read when a sample is taken: a label that is replaced before that leaves no trace. Any text
// is taken; a tab in it breaks the columns of the reports. Waits while a module report is being written.
// Opening and closing bins with tags sets labels too (ktl_mem/profile_bins.h).
KTL_MEM_API void mem_set_timeline_label(const std::string& label);

// Takes one sample of each timeline now, whatever the tracker records. Before the tracker's start this is an
// internal error. When memory runs out in it the process ends (ktl_mem/out_of_memory.h).
KTL_MEM_API void mem_user_snapshot_tracking_data();
