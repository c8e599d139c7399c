// For whoever hands the call paths of a tracked process to another process.
#pragma once

#include "ktl_mem/export.h"

// The descriptor of the shared memory that holds the call paths, once; it is the caller's from then on, and
// the tracker goes on without it. -1 when the key "mem_profile_share_call_paths" did not ask for shared
// memory, when there is none, and for every further call. Any thread, but one at a time.
KTL_MEM_API int mem_take_call_path_region();
