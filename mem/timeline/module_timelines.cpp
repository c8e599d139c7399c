#include "mem/timeline/module_timelines.h"

#include <algorithm>

MEM_MODULE_TIMELINES* mem_tbb_module_timelines = nullptr;

namespace {

unsigned char lower(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

}  // namespace

bool MEM_LESS_WITHOUT_CASE::operator()(std::string_view a, std::string_view b) const {
    return std::ranges::lexicographical_compare(a, b, {}, lower, lower);
}

// A module that comes late, or comes back after a reset, gets zeros for the samples that it missed, so that
// its values stand in the rows of their samples.
void MEM_MODULE_TIMELINES::record(std::string_view name, std::int64_t current_bytes,
                                  std::int64_t cumulative_blocks) {
    auto found = series.find(name);
    if (found == series.end()) found = series.try_emplace(std::string(name)).first;
    MEM_MODULE_SERIES& module = found->second;
    module.bytes.fill_to(num_samples);
    module.bytes.append(current_bytes);
    module.blocks.fill_to(num_samples);
    module.blocks.append(cumulative_blocks);
}
