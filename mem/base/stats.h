// The process-wide statistics as the event path moves them, and the local regions.
#pragma once

#include <atomic>
#include <cstdint>

#include "ktl_mem/statistics.h"
#include "mem/base/counting.h"

struct MEM_STATS_WORDS {
    std::atomic<std::int64_t> bytes{0};
    std::atomic<std::int64_t> blocks{0};

    MEM_BASE_STATS read() const {
        return {bytes.load(std::memory_order_relaxed), blocks.load(std::memory_order_relaxed)};
    }
    void store(const MEM_BASE_STATS& stats) {
        bytes.store(stats.bytes, std::memory_order_relaxed);
        blocks.store(stats.blocks, std::memory_order_relaxed);
    }
};

// Writers of one another's lines would slow every event down, so each group has lines of its own.
struct alignas(64) MEM_STATS_GROUP : MEM_STATS_WORDS {};
extern MEM_STATS_GROUP mem_stats_current;
extern MEM_STATS_GROUP mem_stats_peak;
extern MEM_STATS_GROUP mem_stats_local_peak;

// Raises target to at least value. Relaxed: a maximum that orders nothing.
inline void mem_raise_to(std::atomic<std::int64_t>& target, std::int64_t value) {
    std::int64_t seen = target.load(std::memory_order_relaxed);
    if (value > seen && process_has_one_thread()) {
        target.store(value, std::memory_order_relaxed);
        return;
    }
    while (value > seen && !target.compare_exchange_weak(seen, value, std::memory_order_relaxed)) {
    }
}

void mem_stats_add_block(std::uint64_t allocated);
void mem_stats_remove_block(std::uint64_t allocated);
