// The statistics of tracked memory: current, peak and local peak.
//
// All calls are safe from any thread and inside an allocator hook; none allocates, blocks or fails.
// The figures move only while tracking counts blocks (MEM_TRACKING_ALLOC_DEALLOC or
// MEM_TRACKING_LEAKS_FAST); otherwise they stand still. Bytes are allocated sizes, as the allocator
// reports them. A returned record is read word by word: it can mix two moments.
#pragma once

#include <cstdint>

#include "ktl_mem/export.h"

struct MEM_BASE_STATS {
    std::int64_t bytes = 0;   // of tracked live blocks
    std::int64_t blocks = 0;  // tracked live blocks
};

struct MEM_STATS {
    MEM_BASE_STATS current;     // what is live now
    MEM_BASE_STATS peak;        // highest values of current since the process began, each field by itself
    MEM_BASE_STATS local_peak;  // highest values of current since the last start of a local region
};

KTL_MEM_API MEM_STATS mem_get_stats();
KTL_MEM_API MEM_BASE_STATS mem_get_global_current();
KTL_MEM_API MEM_BASE_STATS mem_get_global_peak();
KTL_MEM_API MEM_BASE_STATS mem_get_local_peak();
KTL_MEM_API std::uint64_t mem_get_current_bytes();

// Starts a local region: the local peak begins again at the current figures. The result is the local
// peak that was in force; the caller keeps it for mem_exit_local_region.
KTL_MEM_API MEM_BASE_STATS mem_enter_local_region();

// Ends the local region that gave `saved` and returns its peak. The local peak of the region around it
// goes on as if it had never been interrupted. Regions nest.
KTL_MEM_API MEM_BASE_STATS mem_exit_local_region(const MEM_BASE_STATS& saved);
