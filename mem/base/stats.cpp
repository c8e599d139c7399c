#include "mem/base/stats.h"

#include "mem/base/profiler_counters.h"

MEM_STATS_GROUP mem_stats_current;
MEM_STATS_GROUP mem_stats_peak;
MEM_STATS_GROUP mem_stats_local_peak;
MEM_PROFILER_COUNTERS mem_tbb_profiler_counters;

// Relaxed throughout: each word is a sum or a maximum of its own, and a reader may mix two moments.
void mem_stats_add_block(std::uint64_t allocated) {
    const auto size = static_cast<std::int64_t>(allocated);
    const std::int64_t bytes = mem_add(mem_stats_current.bytes, size);
    const std::int64_t blocks = mem_add<std::int64_t>(mem_stats_current.blocks, 1);
    mem_raise_to(mem_stats_peak.bytes, bytes);
    mem_raise_to(mem_stats_peak.blocks, blocks);
    mem_raise_to(mem_stats_local_peak.bytes, bytes);
    mem_raise_to(mem_stats_local_peak.blocks, blocks);
}

void mem_stats_remove_block(std::uint64_t allocated) {
    mem_add(mem_stats_current.bytes, -static_cast<std::int64_t>(allocated));
    mem_add<std::int64_t>(mem_stats_current.blocks, -1);
}

MEM_STATS mem_get_stats() {
    return {mem_stats_current.read(), mem_stats_peak.read(), mem_stats_local_peak.read()};
}
MEM_BASE_STATS mem_get_global_current() {
    return mem_stats_current.read();
}
MEM_BASE_STATS mem_get_global_peak() {
    return mem_stats_peak.read();
}
MEM_BASE_STATS mem_get_local_peak() {
    return mem_stats_local_peak.read();
}
std::uint64_t mem_get_current_bytes() {
    return static_cast<std::uint64_t>(mem_stats_current.read().bytes);
}

MEM_BASE_STATS mem_enter_local_region() {
    const MEM_BASE_STATS outer = mem_stats_local_peak.read();
    // Plain stores: a raise by another thread just before them is lost, which only an event pays for that
    // races with the region's very start.
    mem_stats_local_peak.store(mem_stats_current.read());
    return outer;
}

MEM_BASE_STATS mem_exit_local_region(const MEM_BASE_STATS& saved) {
    const MEM_BASE_STATS inner = mem_stats_local_peak.read();
    mem_raise_to(mem_stats_local_peak.bytes, saved.bytes);
    mem_raise_to(mem_stats_local_peak.blocks, saved.blocks);
    return inner;
}
