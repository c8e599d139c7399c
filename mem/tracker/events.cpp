#include "mem/tracker/events.h"

#include <cstdio>
#include <mutex>
#include <new>

#include "mem/attribution/address_table.h"
#include "mem/base/gate.h"
#include "mem/base/messages.h"
#include "mem/base/scarcity.h"
#include "mem/base/stats.h"
#include "mem/base/tracker_phase.h"
#include "mem/bins/bin_attribution.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/bins/timeline_labels.h"
#include "mem/paths/call_paths.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/sample_clock.h"
#include "mem/timeline/tag_timeline.h"
#include "mem/tracker/attribution_stage.h"
#include "mem/tracker/event_numbers.h"
#include "mem/tracker/peak_search.h"
#include "mem/tracker/resident_sampling.h"
#include "mem/tracker/tracker_state.h"
#include "platform/kept_errno.h"
#include "platform/thread.h"

namespace {

#define MEM_COLD __attribute__((noinline, cold))

// A peak of the process: everybody's share of it is kept. Events wait meanwhile.
MEM_COLD void record_peak(std::int64_t total, std::uint32_t word) {
    const THREAD_NOT_CANCELLED message_is_written;
    mem_tbb_peak_search.record(total);
    mem_msg_debug(
        "Memory tracking: recording peak bytes at %lld bytes (timeline index %llu), next peak at >= %lld "
        "bytes",
        static_cast<long long>(total), static_cast<unsigned long long>(mem_tbb_timeline_index.read()),
        static_cast<long long>(mem_tbb_peak_search.next_shown_after(total)));
    const MEM_GATE_SCOPE alone(*mem_tbb_gate, MEM_CAT);
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    const MEM_TURNS_HELD at_rest;
    if ((word & MEM_TRACKING_PROFILE_BIN_TAGS) != 0) {
        mem_tbb_bin_table->take_peak();
        mem_tbb_tag_table->take_peak();
    }
    for (auto& [pc, site] : mem_tbb_call_sites->records()) {
        const MEMORY_TRACKER_BASE now = site.tally.read();
        site.peak_blocks = now.current_blocks;
        site.peak_bytes = now.current_bytes;
    }
    mem_tbb_peak_timeline_index = mem_tbb_timeline_index.read();
}

MEM_COLD bool record_if_peak(std::uint32_t word) {
    const std::int64_t total = mem_tbb_total_bytes.read().current_bytes;
    const bool is_peak = mem_tbb_peak_search.is_peak(total);
    if (is_peak)
        record_peak(total, word);
    else
        mem_tbb_peak_search.wait_for_rise();
    return is_peak;
}

// Looks at the total from before this free.
bool is_new_peak(std::uint32_t word) {
    return (word & mem_timeline_mask) != 0 && mem_tbb_peak_search.has_risen() && record_if_peak(word);
}

MEM_COLD void sample_labels_and_process(std::uint32_t word) {
    const THREAD_NOT_CANCELLED figures_are_read;
    if ((word & (MEM_TRACKING_PROFILE_BIN_TAGS | MEM_TRACKING_PER_LIBRARY)) != 0)
        mem_tbb_timeline_labels->sample();
    if ((word & MEM_TRACKING_AUXILIARY_TIMELINE) != 0) mem_tbb_auxiliary_timeline->capture();
    if ((word & mem_timeline_row_bits) != 0) mem_tbb_sample_clock->note(mem_events_numbered());
    if ((word & MEM_TRACKING_RESIDENT) != 0) mem_sample_resident();
}

MEM_COLD void pass_sampling_point() {
    const std::uint64_t index = mem_tbb_timeline_index.take_next();
    if (index % 8 != 0) return;
    const THREAD_NOT_CANCELLED message_is_written;
    const auto shown_index = static_cast<unsigned long long>(index);
    const auto shown_total = static_cast<long long>(mem_tbb_total_bytes.read().current_bytes);
    if (mem_tbb_no_msg_debug) {
        std::printf("Debug: MEM: Memory tracking: at timeline index %llu with total memory %lld\n",
                    shown_index, shown_total);
    } else {
        mem_msg_debug("Debug: MEM: Memory tracking: at timeline index %llu with total memory %lld\n",
                      shown_index, shown_total);
    }
}

// A stage that finds no memory is left out, and the event goes on with the next: what it would have charged
// is not attributed.
template <class STAGE>
void pass(STAGE stage) {
    try {
        stage();
    } catch (const std::bad_alloc&) {
        mem_memory_is_scarce = true;
    }
}

// What an event under such a word charges, it charges inside the gate and all at once, so that reports and
// peaks find either everything of an event or nothing.
constexpr std::uint32_t charged_bits = mem_stack_walk_bits | mem_stats_bits | MEM_TRACKING_PROFILE_BIN_TAGS;

bool has_bins(std::uint32_t word) {
    return (word & MEM_TRACKING_PROFILE_BIN_TAGS) != 0;
}

// False when program counters have to be named first.
bool charge(MEM_ALLOCATION& made, const STACK_WALK_START& start, bool may_be_named) {
    const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
    // The event began before the hooks were detached, and the gate opened for it after the last report:
    // nobody will read it, and what it would use may be on its way out with the process.
    if (mem_tbb_tracker_has_ended()) return true;
    const bool has_site = (made.word & mem_stack_walk_bits) != 0;
    MEM_CALL_SITE* site = nullptr;
    bool is_known = true;
    if (has_site) pass([&] { is_known = (site = mem_find_call_site_of(made.account, start)) != nullptr; });
    if (!is_known && may_be_named) [[unlikely]]
        return false;

    const std::uint64_t allocated = made.block.allocated;
    MEM_TURN turn;
    if (has_site) {
        pass([&] { mem_attribute_alloc(turn, site, made); });
    } else if (has_bins(made.word) &&
               !mem_address_table->put(turn, made.block.address, MEM_BLOCK_MARK::of_bins(made.bins))) {
        made.bins = 0;
    }
    if (has_bins(made.word)) pass([&] { mem_charge_bin_and_tag(turn, made.bins, allocated); });
    if ((made.word & mem_stats_bits) != 0) mem_stats.tally.charge(turn, allocated, allocated);
    if ((made.word & mem_timeline_mask) != 0) mem_tbb_total_bytes.charge(turn, allocated, allocated);
    return true;
}

void discharge(std::uint64_t address, std::uint64_t allocated, std::uint32_t word, bool sampling_point) {
    const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
    if (mem_tbb_tracker_has_ended()) return;
    MEM_TURN turn;
    std::uint32_t bins = 0;
    if ((word & mem_stack_walk_bits) != 0) {
        pass([&] { bins = mem_attribute_dealloc(turn, address, allocated, word, sampling_point); });
    } else if (has_bins(word)) {
        bins = mem_address_table->take(turn, address, MEM_BLOCK_MARK::bins_half).bins();
    }
    if ((word & mem_stats_bits) != 0) mem_stats.tally.discharge(turn, allocated);
    if (has_bins(word)) pass([&] { mem_discharge_bin_and_tag(turn, bins, allocated); });
    if ((word & mem_timeline_mask) != 0) mem_tbb_total_bytes.discharge(turn, allocated);
}

}  // namespace

MEM_COLD void mem_sample_tags() {
    const MEM_GATE_SCOPE alone(*mem_tbb_gate, MEM_CAT);
    if (!mem_tbb_tracker_has_ended()) mem_tbb_tag_timeline->sample();
}

void mem_track_alloc_fully(std::uint64_t address, std::uint64_t requested, std::uint64_t allocated,
                           std::uint32_t word, const STACK_WALK_START& start) {
    const KEPT_ERRNO errno_is_kept;
    const bool sampling_point = mem_take_event_number() && mem_has_room_for_a_sample();
    if ((word & charged_bits) != 0) [[likely]] {
        MEM_ALLOCATION made{{address, requested, allocated}, word, MEM_CALL_PATHS::none, 0, sampling_point};
        if (has_bins(word)) pass([&] { made.bins = mem_current_bin_and_tag(); });
        pass([&] { made.account = mem_find_path(word, start); });
        for (bool may_be_named = true; !charge(made, start, may_be_named);)
            may_be_named = mem_name_call_sites(start);
    }
    if (!sampling_point) [[likely]]
        return;
    if (has_bins(word)) pass(mem_sample_tags);
    pass([&] { sample_labels_and_process(word); });
    if ((word & mem_timeline_mask) != 0) pass(pass_sampling_point);
}

void mem_track_dealloc_fully(std::uint64_t address, std::uint64_t allocated, std::uint32_t word) {
    const KEPT_ERRNO errno_is_kept;
    bool peak_hit = false;
    pass([&] { peak_hit = is_new_peak(word); });
    // A peak is a sampling point too, but takes its number like every event.
    const bool sampling_point = (mem_take_event_number() || peak_hit) && mem_has_room_for_a_sample();
    if (sampling_point && has_bins(word)) [[unlikely]]
        pass(mem_sample_tags);
    if ((word & charged_bits) != 0) [[likely]]
        discharge(address, allocated, word, sampling_point);
    if (!sampling_point) [[likely]]
        return;
    pass([&] { sample_labels_and_process(word); });
    if ((word & mem_timeline_mask) != 0) pass(pass_sampling_point);
}

void mem_expect_alloc(std::uint64_t address) {
    const std::uint32_t word = mem_tracking_word;
    if ((word & (mem_stack_walk_bits | MEM_TRACKING_PROFILE_BIN_TAGS)) != 0)
        mem_address_table->prefetch(address);
}

void mem_expect_dealloc(std::uint64_t address) {
    // The allocator writes into the block after the event.
    __builtin_prefetch(reinterpret_cast<const void*>(address), 1);
    mem_expect_alloc(address);
}
