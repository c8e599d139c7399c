// Events with made-up addresses and sizes, as the hooks make them. What calls allocate is the call site.
#pragma once

#include <gtest/gtest.h>

#include "ktl_mem/queries.h"
#include "ktl_mem/services.h"
#include "mem/attribution/call_sites.h"
#include "mem/base/stats.h"
#include "mem/base/thread_state.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/tracker/events.h"
#include "mem/tracker/flushed_peaks.h"
#include "mem/tracker/peak_search.h"
#include "mem/tracker/start.h"
#include "mem/tracker/tracker_state.h"
#include "tests/attribution/told_messages.h"

struct BLOCK {
    std::uint64_t address;
    std::uint64_t requested;
    std::uint64_t allocated;
};

inline void track(const BLOCK& block, const STACK_WALK_START& start) {
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_track_alloc(block.address, block.requested, block.allocated, start);
}

__attribute__((noinline)) inline void allocate(const BLOCK& block) {
    track(block, stack_walk_start(__builtin_frame_address(0)));
}

inline void release(std::uint64_t address, std::uint64_t bytes) {
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_track_dealloc(address, bytes);
}

// A call site of its own for each number. The statement after the call keeps the caller's frame on the stack,
// and equal functions from becoming one.
template <int number>
__attribute__((noinline)) void allocate_at(std::uint64_t address, std::uint64_t bytes) {
    allocate({address, bytes, bytes});
    asm volatile("" ::"i"(number));
}

// The tracker as after its start, with all bits of the word, and with samples at peaks only.
class TrackedEvents : public testing::Test {
  protected:
    TrackedEvents() {
        mem_tbb_tracker_start(MEM_TRACKING_ALL);
        mem_tracking_word = MEM_TRACKING_ALL;
        MEM_STACK_TRACE_IGNORE_DEPTH = 4;  // no function of an allocator lies between event and caller
        mem_library_snapshot_period = std::uint64_t{1} << 40;
        set_threshold(0x8000000);
        release(0, 0);  // the first event of a process is a sampling point
        mem_reset_tracking_entries();
        delete mem_tbb_flushed_peaks;
        mem_tbb_flushed_peaks = nullptr;
        mem_tbb_flushed_peak = 0;
        mem_stats.tally.clear();
        mem_enter_local_region();
        mem_stats_forget_peak_bytes();
        mem_set_msg_local_vdebug_callback(keep_message);
        messages.clear();
    }

    static void set_threshold(std::uint64_t bytes) {
        mem_fileline_peak_snapshot_threshold = bytes;
        mem_tbb_peak_search.start(static_cast<std::int64_t>(bytes));
    }

    // Bytes and blocks at the peak, of the call site with that number.
    static std::pair<std::int64_t, std::int32_t> peak_at(int number) {
        const std::string name = "allocate_at<" + std::to_string(number) + ">";
        const MEM_LOCK_SCOPE guard(mem_call_site_lock);
        for (const auto& [pc, site] : mem_tbb_call_sites->records())
            if (std::string(site.frame.function).find(name) != std::string::npos)
                return {site.peak_bytes, site.peak_blocks};
        ADD_FAILURE() << "no call site " << name;
        return {};
    }
};
