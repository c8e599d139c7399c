#include "mem/tracker/flushed_peaks.h"

#include <algorithm>
#include <mutex>

#include "ktl_mem/queries.h"
#include "ktl_mem/timelines.h"
#include "mem/attribution/call_sites.h"
#include "mem/base/gate.h"
#include "mem/base/messages.h"
#include "mem/base/stats.h"
#include "mem/base/tracker_phase.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/tracker/peak_search.h"
#include "mem/tracker/whole_change.h"

std::unordered_map<std::uint64_t, MEM_FLUSHED_PEAK>* mem_tbb_flushed_peaks = nullptr;

namespace {

// One flush at a time. Flushes allocate and call the host, so their waiters sleep.
std::mutex flush_mutex;

void keep_peaks_of_call_sites() {
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    if (mem_tbb_flushed_peaks == nullptr) {
        mem_tbb_flushed_peaks = new std::unordered_map<std::uint64_t, MEM_FLUSHED_PEAK>;
    } else {
        mem_tbb_flushed_peaks->clear();
    }
    mem_tbb_flushed_peaks->reserve(mem_tbb_call_sites->records().size());
    for (const auto& [pc, site] : mem_tbb_call_sites->records())
        if (site.peak_bytes != 0)
            mem_tbb_flushed_peaks->emplace(pc, MEM_FLUSHED_PEAK{site.peak_bytes, site.peak_blocks});
}

bool has_kept_peaks() {
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    return mem_tbb_flushed_peaks != nullptr;
}

void keep_best_peak() {
    const std::int64_t recorded = mem_tbb_peak_search.recorded();
    if (recorded <= mem_tbb_flushed_peak) return;
    mem_tbb_flushed_peak = recorded;
    mem_change_wholly([] {
        const MEM_GATE_SCOPE alone(*mem_tbb_gate, MEM_CAT);
        mem_tbb_bin_table->flush_peak();
        mem_tbb_tag_table->flush_peak();
        keep_peaks_of_call_sites();
    });
}

void announce_reset() {
    const std::uint32_t word = mem_tracking_word & ~MEM_TRACKING_CALL_PATHS;
    if ((word & mem_timeline_mask) != 0) {
        mem_msg_debug("Memory tracking: memory threshold peak was reset from %lld",
                      static_cast<long long>(mem_tbb_peak_search.recorded()));
    } else if (word == MEM_TRACKING_LEAKS_FAST) {
        const std::int64_t peak = mem_stats.peak().bytes;
        mem_msg_debug("Memory tracking: memory peak was reset from %lld", static_cast<long long>(peak));
        mem_tbb_flushed_peak = std::max<std::int64_t>(mem_tbb_flushed_peak, peak);
        mem_stats_forget_peak_bytes();
    }
}

}  // namespace

void mem_tbb_tracking_flush_peak() {
    if (mem_tbb_tracker_has_ended()) return;
    const std::lock_guard<std::mutex> guard(flush_mutex);
    keep_best_peak();
    announce_reset();
    mem_tbb_peak_search.restart();
    mem_user_snapshot_tracking_data();
}

void mem_restore_flushed_peaks() {
    if ((mem_tracking_word & ~MEM_TRACKING_CALL_PATHS) == MEM_TRACKING_LEAKS_FAST)
        mem_stats_raise_peak_bytes(mem_tbb_flushed_peak);
    if (!has_kept_peaks() || mem_tbb_flushed_peak < mem_tbb_peak_search.recorded()) return;
    mem_tbb_bin_table->restore_peak();
    mem_tbb_tag_table->restore_peak();
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    for (auto& [pc, site] : mem_tbb_call_sites->records()) {
        const auto kept = mem_tbb_flushed_peaks->find(pc);
        const MEM_FLUSHED_PEAK peak =
            kept != mem_tbb_flushed_peaks->end() ? kept->second : MEM_FLUSHED_PEAK{};
        site.peak_bytes = peak.peak_bytes;
        site.peak_blocks = peak.peak_blocks;
    }
}
