#include "mem/timeline/tag_timeline.h"

#include <limits>

#include "mem/base/internal_error.h"
#include "mem/bins/profile_bins.h"

MEM_TAG_TIMELINE* mem_tbb_tag_timeline = nullptr;

namespace {

PB_ID current_bin() {
    const std::uint32_t current_pbin_id = mem_get_profile_bins().bins.get_curr_id();
    mem_require(current_pbin_id <= std::numeric_limits<PB_ID>::max(), mem_conditions::bin_number_fits);
    return static_cast<PB_ID>(current_pbin_id);
}

}  // namespace

void MEM_TAG_TIMELINE::sample() {
    const std::scoped_lock guard(mutex);
    series.bin_series.append(current_bin());
    const std::uint32_t new_num_tags = tags.size();
    mem_require(new_num_tags >= series.tag_series.size(), mem_conditions::tags_only_come);
    series.tag_series.resize(new_num_tags);
    for (std::uint32_t id = 0; id < new_num_tags; ++id) {
        MEM_TIMELINE& tag = series.tag_series[id];
        tag.fill_to(series.num_samples);
        tag.append(tags.row(id).tally.read().current_bytes);
    }
    ++series.num_samples;
}

void MEM_TAG_TIMELINE::reset() {
    const std::scoped_lock guard(mutex);
    tags.clear();
    series.tag_series.clear();
    series.num_samples = 0;
}
