#include "mem/report/shutdown.h"

#include <iostream>
#include <mutex>

#include "ktl_mem/reports.h"
#include "ktl_mem/tracking.h"
#include "mem/base/scarcity.h"
#include "mem/base/tracker_phase.h"
#include "mem/base/tracking_word.h"
#include "mem/debug/allocation_log.h"
#include "mem/report/report_files.h"
#include "mem/report/report_gate.h"
#include "mem/tracker/flushed_peaks.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/tracker_objects.h"
#include "platform/process_life.h"

namespace {

void stop_bins() {
    const std::uint32_t word = mem_tracking_word;
    if ((word & MEM_TRACKING_ALLOC_DEALLOC) != 0) mem_set_tbb_memory_tracking_enabled(false);
    if ((word & MEM_TRACKING_PROFILE_BIN_TAGS) != 0) mem_tbb_bin_tags_enabled = false;
}

// What the tracker has held back is there for the last reports, and not for threads that take all they can
// get.
class MEMORY_FOR_REPORTS {
  public:
    MEMORY_FOR_REPORTS() : others_wait(mem_memory_is_scarce) {
        mem_thread_state.writes_reports = true;
        if (others_wait) mem_hold_other_threads();
        mem_release_reserve();
    }
    ~MEMORY_FOR_REPORTS() {
        if (others_wait) mem_let_other_threads_go();
        mem_thread_state.writes_reports = false;
    }
    MEMORY_FOR_REPORTS(const MEMORY_FOR_REPORTS&) = delete;
    MEMORY_FOR_REPORTS& operator=(const MEMORY_FOR_REPORTS&) = delete;

  private:
    const bool others_wait;
};

}  // namespace

void mem_shutdown_tbb_tracking() {
    if (!mem_tbb_tracker_is_inited()) return;
    if (mem_thread_state.in_tracker || mem_thread_state.holds_gate) {
        // The process ends inside an event or a report of this very thread, whose locks can't be waited for.
        std::cerr << "ktl_mem: the process ends inside the memory tracker; its reports are not written"
                  << std::endl;
        return;
    }
    // One shut-down at a time; a second one finds the flags clear.
    const std::lock_guard<std::mutex> one(mem_report_mutex);
    mem_close_allocation_log();
    stop_bins();
    mem_detach_tracker_hooks();
    const MEM_BLOCK_TRACKING_SCOPE not_an_event;
    const MEM_REPORT_GATE alone;
    const MEMORY_FOR_REPORTS given_back;
    mem_restore_flushed_peaks();
    mem_write_report_files();
    mem_disable_tracking(static_cast<MEM_TRACKING_GRANULARITY>(~std::uint32_t{MEM_TRACKING_LEAKS_FAST}));
    mem_reports_due = 0;
}

void mem_cleanup_tbb_tracking() {
    if (!mem_tbb_tracker_is_inited()) return;
    mem_shutdown_tbb_tracking();
    mem_tbb_tracker_phase.store(MEM_TRACKER_PHASE::ended, std::memory_order_release);
    if (mem_thread_state.in_tracker || mem_thread_state.holds_gate) return;
    // Events that entered the gate before they could see this are waited for: behind this call lie the
    // destructors of what they use.
    { const MEM_GATE_SCOPE nobody_inside(*mem_tbb_gate, MEM_CAT); }
    // A late caller on another thread may have looked at the phase just before.
    if (is_only_thread()) mem_delete_tracker_objects();
}

void mem_abandon_tracking_in_child() {
    if (!mem_tbb_tracker_is_inited()) return;
    mem_tbb_tracker_phase.store(MEM_TRACKER_PHASE::ended, std::memory_order_release);
    mem_tracking_word = 0;
    mem_reports_due = 0;
    mem_tbb_memory_tracking_enabled = false;
    mem_tbb_bin_tags_enabled = false;
    mem_forget_allocation_log();
}
