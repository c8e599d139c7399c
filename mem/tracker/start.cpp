#include "mem/tracker/start.h"

#include <mutex>
#include <string>

#include "ktl_mem/services.h"
#include "mem/attribution/call_sites.h"
#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_filters.h"
#include "mem/attribution/symbolizer.h"
#include "mem/base/allocator_figures.h"
#include "mem/base/configured_number.h"
#include "mem/base/internal_error.h"
#include "mem/base/messages.h"
#include "mem/base/scarcity.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/debug/debug_patterns.h"
#include "mem/tracker/exe_string.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/peak_search.h"
#include "mem/tracker/tracker_objects.h"
#include "mem/tracker/tracker_state.h"

namespace {

void read_sampling() {
    const MEM_TRACKING_SAMPLING sampling = mem_get_tracking_sampling_from_env();
    mem_library_snapshot_period = sampling.library_snapshot_period;
    mem_fileline_peak_snapshot_threshold = sampling.fileline_peak_snapshot_threshold;
    mem_tbb_peak_search.start(static_cast<std::int64_t>(sampling.fileline_peak_snapshot_threshold));
}

void choose_unwinder() {
    mem_tbb_unwinder = ERR_UNWINDER::get_default_unwinder();
    mem_require(mem_tbb_unwinder != nullptr, mem_conditions::unwinder_exists);
    const char* const key = "mem_profile_stack_trace_ignore_depth";
    const std::string configured = mem_cfg_get_value(key);
    if (configured.empty()) return;
    const auto depth = mem_parse_configured_int(key, configured, 10);
    if (!depth) return;
    mem_msg_debug("Changing MEM_STACK_TRACE_IGNORE_DEPTH from default %d to %d",
                  static_cast<std::int32_t>(MEM_STACK_TRACE_IGNORE_DEPTH), *depth);
    MEM_STACK_TRACE_IGNORE_DEPTH = *depth;
}

void seed_catch_alls() {
    mem_tbb_call_sites->other().module_tracker = &mem_tbb_module_trackers->find_or_create("OTHER");
}

void build_and_go_live(MEM_TRACKING_GRANULARITY starting_word) {
    read_sampling();
    mem_make_tracker_objects();
    mem_bind_allocator_figures();
    choose_unwinder();
    mem_choose_symbolizer(starting_word != 0);
    if (starting_word != 0) mem_read_user_defined_filters();
    mem_create_exe_string();
    seed_catch_alls();
    if (mem_cfg_is_on("mem_profile_with_incomplete_fileline_info", false)) mem_tbb_incomplete_fileline = true;
    if (mem_cfg_is_on("mem_profile_with_best_names", false)) mem_tbb_best_names = true;
    // The phase changes before the hooks go live, so that no event finds a tracker that has not started.
    mem_tbb_tracker_phase.store(MEM_TRACKER_PHASE::started, std::memory_order_release);
    mem_tracking_word = starting_word;
    if (starting_word != 0) {
        mem_hold_reserve();
        mem_attach_tracker_hooks();
    }
    if ((starting_word & MEM_TRACKING_ALLOC_DEALLOC) != 0) mem_tbb_memory_tracking_enabled = true;
    if ((starting_word & MEM_TRACKING_PROFILE_BIN_TAGS) != 0) mem_tbb_bin_tags_enabled = true;
    mem_load_debug_patterns();
}

}  // namespace

void mem_tbb_tracker_start(MEM_TRACKING_GRANULARITY starting_word) {
    static std::once_flag once;
    std::call_once(once, build_and_go_live, starting_word);
}
