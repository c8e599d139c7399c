// The process-wide statistics as the event path moves them, and the local regions.
#pragma once

#include <atomic>
#include <cstdint>

#include "ktl_mem/statistics.h"
#include "mem/base/tally.h"

// Each of the two peaks is the greater of its word here and of the highest value that the tally has had since
// the words were last brought up to date.
struct MEM_STATS_COUNTS {
    MEM_TALLY tally;
    std::atomic<std::int64_t> peak_bytes;
    std::atomic<std::int64_t> peak_blocks;
    std::atomic<std::int64_t> local_peak_bytes;
    std::atomic<std::int64_t> local_peak_blocks;

    MEM_BASE_STATS current();
    MEM_BASE_STATS peak() const;
    MEM_BASE_STATS local_peak() const;
};
extern MEM_STATS_COUNTS& mem_stats;

inline void mem_stats_add_block(std::uint64_t allocated) {
    mem_stats.tally.charge(allocated, allocated);
}
inline void mem_stats_remove_block(std::uint64_t allocated) {
    mem_stats.tally.discharge(allocated);
}

// Has the highest number of bytes of the process begin anew at 0. The local peak stays.
void mem_stats_forget_peak_bytes();
// Raises it to at least that.
void mem_stats_raise_peak_bytes(std::int64_t bytes);
// In a forked child.
void mem_stats_renew_locks();
