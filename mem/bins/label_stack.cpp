#include "mem/bins/label_stack.h"

#include "ktl_mem/profile_bins.h"
#include "ktl_mem/timelines.h"
#include "mem/base/undestroyed.h"
#include "platform/process_life.h"

constinit MEM_PLAIN_WORD<bool> mem_tbb_labels_enabled{true};

namespace {

constinit MEM_UNDESTROYED<std::vector<std::string>> labels;

bool bins_set_labels(const std::string& tag) {
    return mem_tbb_labels_enabled && !tag.empty() && (mem_tracking_word & MEM_TRACKING_PER_LIBRARY) != 0;
}

}  // namespace

constinit std::vector<std::string>& mem_tbb_label_stack = labels.object;

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
    mem_tbb_labels_enabled = false;
    std::vector<std::string>().swap(mem_tbb_label_stack);
}

void mem_retire_label_stack() {
    mem_tbb_labels_enabled = false;
    if (is_only_thread()) mem_disable_profile_bin_tag_timeline_labels();
}
