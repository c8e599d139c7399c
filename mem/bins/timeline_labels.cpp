#include "mem/bins/timeline_labels.h"

#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"

MEM_TIMELINE_LABELS* mem_tbb_timeline_labels = nullptr;

// The copy is made, and the old text freed, outside the lock: other threads spin on it.
void MEM_TIMELINE_LABELS::set_label(const std::string& label) {
    std::string text(label);
    const std::unique_lock guard(lock);
    current_label.swap(text);
}

void MEM_TIMELINE_LABELS::sample() {
    const std::unique_lock guard(lock);
    series.append(current_label);
}

void mem_set_timeline_label(const std::string& label) {
    if (mem_tbb_tracker_has_ended() || mem_tbb_timeline_labels == nullptr) return;
    const MEM_BLOCK_TRACKING_SCOPE not_an_event;
    mem_tbb_timeline_labels->set_label(label);
}
