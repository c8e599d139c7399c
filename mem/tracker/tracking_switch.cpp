// The switch of the tracking word: the hooks are attached exactly while it holds a bit.

#include "mem/base/scarcity.h"
#include "mem/base/spin_lock.h"
#include "mem/base/tracker_phase.h"
#include "mem/base/tracking_word.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/start.h"

namespace {

// Makes the switch of the hooks one step with the edge of the word that it belongs to.
constinit MEM_SPIN_LOCK mem_tracking_word_lock;

template <class CHANGE>
void change_word(CHANGE change) {
    // Without tables nothing may be tracked any more. The lock of a forked child may be held for ever, so the
    // question comes before it too.
    if (mem_tbb_tracker_has_ended()) return;
    const MEM_LOCK_SCOPE guard(mem_tracking_word_lock);
    if (mem_tbb_tracker_has_ended()) return;
    const std::uint32_t before = mem_tracking_word;
    const std::uint32_t after = change(before);
    mem_tracking_word = after;
    if (before == 0 && after != 0) {
        mem_hold_reserve();
        mem_attach_tracker_hooks();
    }
    if (before != 0 && after == 0) mem_detach_tracker_hooks();
}

}  // namespace

void mem_enable_tracking(MEM_TRACKING_GRANULARITY bits) {
    change_word([bits](std::uint32_t word) { return word | bits; });
}

void mem_disable_tracking(MEM_TRACKING_GRANULARITY bits) {
    change_word([bits](std::uint32_t word) { return word & ~static_cast<std::uint32_t>(bits); });
}

void mem_set_tbb_track_alloc_dealloc(bool enable) {
    if (enable) {
        mem_enable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
    } else {
        mem_disable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
    }
}

void mem_set_tbb_memory_tracking_enabled(bool enable) {
    mem_tbb_tracker_start(MEM_TRACKING_ALLOC_DEALLOC);
    mem_tbb_memory_tracking_enabled = enable;
}

MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT::MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT()
    : was_set(mem_get_tbb_track_alloc_dealloc()) {
    mem_disable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
}

MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT::~MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT() {
    mem_set_tbb_track_alloc_dealloc(was_set);
}
