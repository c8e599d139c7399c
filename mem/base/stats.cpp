#include "mem/base/stats.h"

#include <algorithm>

#include "mem/base/profiler_counters.h"
#include "mem/base/undestroyed.h"

MEM_PROFILER_COUNTERS mem_tbb_profiler_counters;

namespace {

constinit MEM_UNDESTROYED<MEM_STATS_COUNTS> counts;

// Plain words: two hosts that open or close a region at once can lose one of two values, events never do.
void raise(MEM_PLAIN_WORD<std::int64_t>& word, std::int64_t value) {
    if (value > word) word = value;
}

}  // namespace

constinit MEM_STATS_COUNTS& mem_stats = counts.object;

MEM_BASE_STATS MEM_STATS_COUNTS::current() const {
    return {tally.current_bytes(), tally.current_blocks()};
}

MEM_BASE_STATS MEM_STATS_COUNTS::peak() const {
    return {std::max<std::int64_t>(peak_bytes, tally.highest_bytes()),
            std::max<std::int64_t>(peak_blocks, tally.highest_blocks())};
}

MEM_BASE_STATS MEM_STATS_COUNTS::local_peak() const {
    return {std::max<std::int64_t>(local_peak_bytes, tally.highest_bytes()),
            std::max<std::int64_t>(local_peak_blocks, tally.highest_blocks())};
}

void mem_stats_forget_peak_bytes() {
    raise(mem_stats.local_peak_bytes, mem_stats.tally.set_highest_bytes(0).max_bytes);
    mem_stats.peak_bytes = 0;
}

void mem_stats_raise_peak_bytes(std::int64_t bytes) {
    raise(mem_stats.peak_bytes, bytes);
}

void mem_stats_renew_locks() {
    mem_stats.tally.renew_locks();
}

MEM_STATS mem_get_stats() {
    return {mem_stats.current(), mem_stats.peak(), mem_stats.local_peak()};
}
MEM_BASE_STATS mem_get_global_current() {
    return mem_stats.current();
}
MEM_BASE_STATS mem_get_global_peak() {
    return mem_stats.peak();
}
MEM_BASE_STATS mem_get_local_peak() {
    return mem_stats.local_peak();
}
std::uint64_t mem_get_current_bytes() {
    return static_cast<std::uint64_t>(mem_stats.current().bytes);
}

MEM_BASE_STATS mem_enter_local_region() {
    const MEM_BASE_STATS outer = mem_stats.local_peak();
    // Ahead of it as far as possible, so that nobody sees the peak fall meanwhile.
    raise(mem_stats.peak_bytes, mem_stats.tally.highest_bytes());
    raise(mem_stats.peak_blocks, mem_stats.tally.highest_blocks());
    const MEMORY_TRACKER_BASE before = mem_stats.tally.restart_highest();
    raise(mem_stats.peak_bytes, before.max_bytes);
    raise(mem_stats.peak_blocks, before.max_blocks);
    mem_stats.local_peak_bytes = before.current_bytes;
    mem_stats.local_peak_blocks = before.current_blocks;
    return outer;
}

MEM_BASE_STATS mem_exit_local_region(const MEM_BASE_STATS& saved) {
    const MEM_BASE_STATS inner = mem_stats.local_peak();
    raise(mem_stats.local_peak_bytes, saved.bytes);
    raise(mem_stats.local_peak_blocks, saved.blocks);
    return inner;
}
