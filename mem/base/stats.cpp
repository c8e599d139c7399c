#include "mem/base/stats.h"

#include <algorithm>

#include "mem/base/atomic_maximum.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/thread_state.h"
#include "mem/base/undestroyed.h"

MEM_PROFILER_COUNTERS mem_tbb_profiler_counters;

namespace {

constinit MEM_UNDESTROYED<MEM_STATS_COUNTS> counts;

std::int64_t greater(const std::atomic<std::int64_t>& word, std::int64_t value) {
    return std::max(word.load(std::memory_order_relaxed), value);
}

}  // namespace

constinit MEM_STATS_COUNTS& mem_stats = counts.object;

MEM_BASE_STATS MEM_STATS_COUNTS::current() {
    // A signal may have come in the middle of an event of this thread, whose locks can't be waited for.
    if (mem_thread_state.in_tracker) return {tally.peek_at_current_bytes(), tally.peek_at_current_blocks()};
    const MEM_TALLY_FIGURES now = tally.read();
    return {now.current_bytes, now.current_blocks};
}

MEM_BASE_STATS MEM_STATS_COUNTS::peak() const {
    return {greater(peak_bytes, tally.highest_bytes()), greater(peak_blocks, tally.highest_blocks())};
}

MEM_BASE_STATS MEM_STATS_COUNTS::local_peak() const {
    return {greater(local_peak_bytes, tally.highest_bytes()),
            greater(local_peak_blocks, tally.highest_blocks())};
}

void mem_stats_forget_peak_bytes() {
    mem_raise(mem_stats.local_peak_bytes, mem_stats.tally.set_highest_bytes(0).max_bytes);
    mem_stats.peak_bytes.store(0, std::memory_order_relaxed);
}

void mem_stats_raise_peak_bytes(std::int64_t bytes) {
    mem_raise(mem_stats.peak_bytes, bytes);
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
    mem_raise(mem_stats.peak_bytes, mem_stats.tally.highest_bytes());
    mem_raise(mem_stats.peak_blocks, mem_stats.tally.highest_blocks());
    const MEM_TALLY_FIGURES before = mem_stats.tally.restart_highest();
    mem_raise(mem_stats.peak_bytes, before.max_bytes);
    mem_raise(mem_stats.peak_blocks, before.max_blocks);
    mem_stats.local_peak_bytes.store(before.current_bytes, std::memory_order_relaxed);
    mem_stats.local_peak_blocks.store(before.current_blocks, std::memory_order_relaxed);
    return outer;
}

MEM_BASE_STATS mem_exit_local_region(const MEM_BASE_STATS& saved) {
    const MEM_BASE_STATS inner = mem_stats.local_peak();
    mem_raise(mem_stats.local_peak_bytes, saved.bytes);
    mem_raise(mem_stats.local_peak_blocks, saved.blocks);
    return inner;
}
