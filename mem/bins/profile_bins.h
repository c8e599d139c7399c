// The open bins and tags of the process. The exported calls are in ktl_mem/profile_bins.h.
#pragma once

#include <atomic>
#include <cstdint>

#include "ktl_mem/profile_bins.h"
#include "ktl_mem/statistics.h"
#include "mem/bins/profile_bin_stack.h"

// One open bin, while bins measure.
struct MEM_PROFILE_BIN_FRAME {
    MEM_PROFILE_BIN_FRAME* next = nullptr;  // the frame below
    std::int64_t start_bytes = 0;           // current bytes of the process at the open
    MEM_BASE_STATS saved_local_peak;        // the local peak that this bin interrupted
};

struct MEM_PROFILE_BINS {
    MEM_PROFILE_BINS() = default;
    ~MEM_PROFILE_BINS();
    MEM_PROFILE_BINS(const MEM_PROFILE_BINS&) = delete;
    MEM_PROFILE_BINS& operator=(const MEM_PROFILE_BINS&) = delete;

    MEM_PROFILE_BIN_FRAME* frames = nullptr;
    MEM_PROFILE_BIN_STACK tags;
    MEM_PROFILE_BIN_STACK bins;  // by full name: the tag, "::", the name given at the open
};

// Null until the first use. Read it through mem_get_profile_bins; the tear-down takes it and deletes it.
extern std::atomic<MEM_PROFILE_BINS*> mem_tbb_profile_bins;

MEM_PROFILE_BINS& mem_create_profile_bins();

// The one object, made at the first call from any path and on any thread, an allocator hook among them.
inline MEM_PROFILE_BINS& mem_get_profile_bins() {
    MEM_PROFILE_BINS* made = mem_tbb_profile_bins.load(std::memory_order_acquire);
    return made != nullptr ? *made : mem_create_profile_bins();
}
