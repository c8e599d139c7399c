#include "mem/tracker/resident_sampling.h"

#include <algorithm>

#include "mem/attribution/call_sites.h"
#include "mem/base/gate.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/base/tracking_word.h"
#include "mem/tracker/event_numbers.h"
#include "mem/tracker/tracker_state.h"

constinit std::atomic<std::int64_t> mem_tbb_announced_bytes{0};

namespace {

std::int64_t add_up_rounding() {
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    double sum = 0;
    for (auto& [pc, site] : mem_tbb_call_sites->records()) {
        const MEMORY_TRACKER_BASE counters = site.counters();
        if (counters.current_bytes <= 0 || counters.cumulative_bytes <= 0) continue;
        const auto given = static_cast<double>(counters.cumulative_bytes);
        const double beyond = given - static_cast<double>(counters.cumulative_requested_bytes);
        sum += static_cast<double>(counters.current_bytes) * std::clamp(beyond / given, 0.0, 1.0);
    }
    return static_cast<std::int64_t>(sum);
}

}  // namespace

MEM_TRACKED_BLOCKS mem_tracked_blocks() {
    MEM_TRACKED_BLOCKS blocks;
    const auto own = mem_tbb_profiler_counters.profiler_allocated_outstanding.load(std::memory_order_relaxed);
    blocks.own = std::max<std::int64_t>(static_cast<std::int64_t>(own), 0);
    const std::uint32_t word = mem_tracking_word;
    if ((word & mem_timeline_mask) != 0)
        blocks.heap =
            mem_tbb_total_bytes.current_bytes() - mem_tbb_announced_bytes.load(std::memory_order_relaxed);
    return blocks;
}

std::int64_t mem_rounding_of_blocks() {
    if ((mem_tracking_word & mem_call_site_counter_bits) == 0) return 0;
    if (mem_thread_state.holds_gate) return add_up_rounding();
    const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
    return mem_tbb_tracker_has_ended() ? 0 : add_up_rounding();
}

void mem_sample_resident() {
    mem_tbb_resident_timeline->sample(mem_events_numbered(), mem_tracked_blocks(), mem_rounding_of_blocks);
}

void mem_note_resident_now() {
    MEM_TRACKED_BLOCKS tracked = mem_tracked_blocks();
    tracked.rounding = mem_rounding_of_blocks();
    mem_tbb_resident_timeline->note_full(mem_events_numbered(), tracked);
}

bool mem_get_resident_parts(MEM_RESIDENT_PARTS& out) {
    MEM_TRACKED_BLOCKS tracked;
    const MEM_BLOCK_TRACKING_SCOPE not_an_event;
    mem_bind_allocator_figures();
    if (mem_tbb_tracker_is_inited() && !mem_tbb_tracker_has_ended()) {
        tracked = mem_tracked_blocks();
        tracked.rounding = mem_rounding_of_blocks();
    }
    const auto parts = mem_take_resident_apart(tracked);
    if (parts) out = *parts;
    return parts.has_value();
}
