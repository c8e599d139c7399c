// The tags of open bins that set a timeline label. Same callers as the bins: one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "mem/base/tracking_word.h"

extern std::vector<std::string>& mem_tbb_label_stack;  // newest last
extern MEM_PLAIN_WORD<bool> mem_tbb_labels_enabled;

// What opening and closing a bin do to the timeline label. Nothing without a tag, while modules are not
// tracked, or after mem_disable_profile_bin_tag_timeline_labels.
void mem_push_bin_label(const std::string& tag);
// A tag that is not the newest removes nothing; the newest label is set again all the same.
void mem_pop_bin_label(const std::string& tag);

// At the end of the library: no labels from now on. A thread that is about to set one is let finish.
void mem_retire_label_stack();
