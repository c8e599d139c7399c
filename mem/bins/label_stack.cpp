#include "mem/bins/label_stack.h"

#include "ktl_mem/profile_bins.h"
#include "ktl_mem/timelines.h"
#include "mem/base/tracking_word.h"

constinit std::vector<std::string> mem_tbb_label_stack;
bool mem_tbb_labels_enabled = true;

namespace {

bool bins_set_labels(const std::string& tag) {
    return mem_tbb_labels_enabled && !tag.empty() && (mem_tracking_word & MEM_TRACKING_PER_LIBRARY) != 0;
}

}  // namespace

void mem_push_bin_label(const std::string& tag) {
    if (!bins_set_labels(tag)) return;
    mem_tbb_label_stack.push_back(tag);
    mem_set_timeline_label(tag);
}

void mem_pop_bin_label(const std::string& tag) {
    if (!bins_set_labels(tag)) return;
    if (!mem_tbb_label_stack.empty() && mem_tbb_label_stack.back() == tag) mem_tbb_label_stack.pop_back();
    mem_set_timeline_label(mem_tbb_label_stack.empty() ? std::string() : mem_tbb_label_stack.back());
}

void mem_disable_profile_bin_tag_timeline_labels() {
    std::vector<std::string>().swap(mem_tbb_label_stack);
    mem_tbb_labels_enabled = false;
}
