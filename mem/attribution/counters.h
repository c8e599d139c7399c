// How an event moves the counters of a call site or a module. The caller holds the lock that guards them.
#pragma once

#include <algorithm>
#include <cstdint>

#include "ktl_mem/records.h"

inline void mem_charge(MEMORY_TRACKER_BASE& counters, std::uint64_t requested, std::uint64_t allocated) {
    ++counters.current_blocks;
    ++counters.cumulative_blocks;
    counters.max_blocks = std::max(counters.max_blocks, counters.current_blocks);
    counters.current_bytes += static_cast<std::int64_t>(allocated);
    counters.cumulative_bytes += static_cast<std::int64_t>(allocated);
    counters.cumulative_requested_bytes += static_cast<std::int64_t>(requested);
    counters.max_bytes = std::max(counters.max_bytes, counters.current_bytes);
}

inline void mem_discharge(MEMORY_TRACKER_BASE& counters, std::uint64_t allocated) {
    --counters.current_blocks;
    counters.current_bytes -= static_cast<std::int64_t>(allocated);
}
