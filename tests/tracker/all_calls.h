// What hosts call while others allocate.
#pragma once

#include <chrono>
#include <sstream>
#include <string>
#include <thread>

#include "ktl_mem/profile_bins.h"
#include "ktl_mem/queries.h"
#include "ktl_mem/reports.h"
#include "ktl_mem/timelines.h"
#include "ktl_mem/tracking.h"

// Samples are kept for ever, dumps write them all, and sampling points wait for dumps.
inline void pause_storm() {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

inline std::string dump_everything() {
    std::ostringstream out;
    mem_dump_tbb_fileline_tracking(out);
    mem_dump_tbb_call_paths_tracking(out);
    out << mem_get_largest_call_path(MEM_CALL_PATH_MOMENT::PEAK);
    mem_dump_tbb_subsystem_tracking(out);
    mem_dump_tbb_module_tracking(out, out);
    mem_dump_tbb_profile_bin_tag_timeline_tracking(out, out);
    mem_dump_tbb_profile_bin_stats_tracking(out);
    mem_dump_tbb_profile_bin_tag_stats_tracking(out);
    pause_storm();
    return out.str();
}

inline void pass_a_phase() {
    std::uint64_t start = 0, end = 0, peak = 0;
    mem_open_profile_bin("phase", "T");
    mem_open_profile_bin("inner", "");
    mem_close_profile_bin("", &start, &end, &peak);
    mem_close_profile_bin("T", &start, &end, &peak);
}

inline void flush_and_sample() {
    MEM_ADDRESS_TRACKER record;
    MEMORY_TRACKER_BASE module;
    mem_set_timeline_label("by the host");
    mem_user_snapshot_tracking_data();
    mem_tbb_tracking_flush_peak();
    mem_get_address_tracker(nullptr, record);
    mem_get_module_tracker("OTHER", module);
    pause_storm();
}

inline void reset() {
    mem_reset_tracking_entries();
    pause_storm();
}
