#include "mem/tracker/start.h"

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "ktl_mem/services.h"
#include "mem/attribution/address_table.h"
#include "mem/attribution/call_sites.h"
#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_filters.h"
#include "mem/attribution/symbolizer.h"
#include "mem/base/allocator_figures.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/configured_number.h"
#include "mem/base/gate.h"
#include "mem/base/internal_error.h"
#include "mem/base/messages.h"
#include "mem/base/scarcity.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/bins/bin_tag_numbers.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/bins/timeline_labels.h"
#include "mem/debug/debug_patterns.h"
#include "mem/paths/call_paths.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timelines.h"
#include "mem/timeline/resident_timeline.h"
#include "mem/timeline/sample_clock.h"
#include "mem/timeline/tag_timeline.h"
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

// Also for a word without their bit, which may come later: until then they take a few pages. Without memory
// there are none.
MEM_CALL_PATHS* make_call_paths() {
    const bool are_shared = mem_cfg_is_on("mem_profile_share_call_paths", false);
    auto paths = std::make_unique<MEM_CALL_PATHS>(
        reinterpret_cast<const void*>(MallocExtension_GetOwnership), mem_get_most_call_path_nodes_from_env(),
        are_shared ? MEM_PATH_PLACE::shared_memory : MEM_PATH_PLACE::private_memory);
    return paths->is_made() ? paths.release() : nullptr;
}

void build_tables() {
    mem_tbb_call_sites = new MEM_CALL_SITE_TABLE;
    mem_tracker_pool = new MEM_TRACKER_POOL;
    mem_address_table = new MEM_ADDRESS_TABLE(MEM_ARRAY_SOURCE{mem_tracker_pool});
    mem_tbb_call_paths = make_call_paths();
    mem_tbb_module_trackers = new MEM_MODULE_TABLE;
    mem_tbb_module_timelines = new MEM_MODULE_TIMELINES;
    mem_tbb_auxiliary_timeline = new MEM_AUXILIARY_TIMELINE;
    mem_tbb_sample_clock = new MEM_SAMPLE_CLOCK;
    mem_tbb_resident_timeline = new MEM_RESIDENT_TIMELINE;
    mem_tbb_timeline_labels = new MEM_TIMELINE_LABELS;
    mem_bin_tag_numbers = new MEM_BIN_TAG_NUMBERS;
    mem_tbb_bin_table = new MEM_PROFILE_BIN_TABLE;
    mem_tbb_tag_table = new MEM_PROFILE_BIN_TABLE;
    mem_tbb_tag_timeline = new MEM_TAG_TIMELINE(*mem_tbb_tag_table);
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
    build_tables();
    mem_bind_allocator_figures();
    choose_unwinder();
    mem_choose_symbolizer(starting_word != 0);
    if (starting_word != 0) mem_read_user_defined_filters();
    mem_create_exe_string();
    mem_tbb_gate = new MEM_CATS_AND_MICE;
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
