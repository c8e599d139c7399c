#include "mem/tracker/tracker_objects.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <type_traits>

#include "ktl_mem/services.h"
#include "mem/attribution/address_table.h"
#include "mem/attribution/call_sites.h"
#include "mem/attribution/module_trackers.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/configured_number.h"
#include "mem/base/gate.h"
#include "mem/bins/bin_tag_numbers.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/bins/profile_bins.h"
#include "mem/bins/timeline_labels.h"
#include "mem/paths/call_paths.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timelines.h"
#include "mem/timeline/resident_timeline.h"
#include "mem/timeline/sample_clock.h"
#include "mem/timeline/tag_timeline.h"
#include "mem/tracker/exe_string.h"
#include "mem/tracker/flushed_peaks.h"
#include "mem/tracker/fork_gate.h"
#include "mem/tracker/tracker_state.h"

MEM_TRACKER_POOL* mem_tracker_pool = nullptr;

namespace {

struct MEM_OWNED {
    void (*make)();
    void (*remove)();
};

template <auto& object>
void remove() {
    delete object;
    object = nullptr;
}

template <auto& object>
void make() {
    object = new std::remove_pointer_t<std::remove_reference_t<decltype(object)>>;
}

// Somebody else makes it, at its first use or with the name that it is to have.
void made_elsewhere() {}

// Also for a word without their bit, which may come later: until then they take a few pages. Without memory
// there are none.
void make_call_paths() {
    const bool are_shared = mem_cfg_is_on("mem_profile_share_call_paths", false);
    auto paths = std::make_unique<MEM_CALL_PATHS>(
        reinterpret_cast<const void*>(MallocExtension_GetOwnership), mem_get_most_call_path_nodes_from_env(),
        are_shared ? MEM_PATH_PLACE::shared_memory : MEM_PATH_PLACE::private_memory);
    mem_tbb_call_paths = paths->is_made() ? paths.release() : nullptr;
}

// Each may use those before it.
constexpr MEM_OWNED objects[] = {
    {made_elsewhere, remove<mem_tbb_flushed_peaks>},
    {made_elsewhere, remove<mem_tbb_exe_string>},
    {make<mem_tbb_module_trackers>, remove<mem_tbb_module_trackers>},
    {make<mem_tbb_call_sites>, remove<mem_tbb_call_sites>},
    {make<mem_tracker_pool>, remove<mem_tracker_pool>},
    {[] { mem_address_table = new MEM_ADDRESS_TABLE(MEM_ARRAY_SOURCE{mem_tracker_pool}); },
     remove<mem_address_table>},
    {make_call_paths, remove<mem_tbb_call_paths>},
    {make<mem_tbb_module_timelines>, remove<mem_tbb_module_timelines>},
    {make<mem_tbb_auxiliary_timeline>, remove<mem_tbb_auxiliary_timeline>},
    {make<mem_tbb_sample_clock>, remove<mem_tbb_sample_clock>},
    {make<mem_tbb_resident_timeline>, remove<mem_tbb_resident_timeline>},
    {make<mem_tbb_timeline_labels>, remove<mem_tbb_timeline_labels>},
    {make<mem_bin_tag_numbers>, remove<mem_bin_tag_numbers>},
    {make<mem_tbb_bin_table>, remove<mem_tbb_bin_table>},
    {make<mem_tbb_tag_table>, remove<mem_tbb_tag_table>},
    {[] { mem_tbb_tag_timeline = new MEM_TAG_TIMELINE(*mem_tbb_tag_table); }, remove<mem_tbb_tag_timeline>},
    {make<mem_tbb_gate>, remove<mem_tbb_gate>},
    {mem_make_fork_gate, remove<mem_fork_gate>},
    {made_elsewhere, [] { delete mem_tbb_profile_bins.exchange(nullptr); }},
};

}  // namespace

void mem_make_tracker_objects() {
    for (const MEM_OWNED& object : objects) object.make();
}

void mem_delete_tracker_objects() {
    std::for_each(std::rbegin(objects), std::rend(objects), [](const MEM_OWNED& object) { object.remove(); });
}
