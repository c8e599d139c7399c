// The tracker's figures of the process while it runs.
#include <algorithm>

#include "ktl_mem/running_reports.h"
#include "ktl_mem/statistics.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/tracker/event_numbers.h"
#include "mem/tracker/peak_search.h"
#include "mem/tracker/tracker_state.h"

namespace {

// Hosts ask in hooks, too, and so in the middle of an event that takes memory, whose turn can't be waited
// for.
void take_total(MEM_TRACKING_FIGURES& out) {
    MEM_TALLY& total = mem_tbb_total_bytes;
    const bool in_event = mem_thread_state.in_tracker;
    out.current_bytes = in_event ? total.peek_at_current_bytes() : total.current_bytes();
    out.current_blocks = in_event ? total.peek_at_current_blocks() : total.current_blocks();
    out.peak_bytes = mem_tbb_peak_search.recorded();
}

void take_statistics(MEM_TRACKING_FIGURES& out) {
    const MEM_STATS stats = mem_get_stats();
    out.current_bytes = static_cast<std::int64_t>(stats.current.bytes);
    out.current_blocks = static_cast<std::int64_t>(stats.current.blocks);
    out.peak_bytes = static_cast<std::int64_t>(stats.peak.bytes);
}

}  // namespace

bool mem_get_tracking_figures(MEM_TRACKING_FIGURES& out) {
    if (!mem_tbb_tracker_is_inited()) return false;
    const std::uint32_t word = mem_tracking_word;
    out = {};
    out.word = static_cast<MEM_TRACKING_GRANULARITY>(word);
    out.events = mem_events_numbered();
    out.own_bytes = static_cast<std::int64_t>(
        mem_tbb_profiler_counters.profiler_allocated_outstanding.load(std::memory_order_relaxed));
    if ((word & mem_timeline_mask) != 0) {
        take_total(out);
    } else if ((word & mem_stats_bits) != 0) {
        take_statistics(out);
    }
    out.peak_bytes = std::max(out.peak_bytes, out.current_bytes);
    return true;
}
