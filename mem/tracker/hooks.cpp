#include "mem/tracker/hooks.h"

#include <atomic>

#include "mem/base/allocator_slots.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/scarcity.h"
#include "mem/base/thread_state.h"
#include "mem/tracker/events.h"
#include "platform/thread.h"

namespace {

constexpr int owned = 1;

bool may_track(const MEM_THREAD_STATE& state) {
    return !state.in_tracker && !state.tracking_blocked;
}

std::size_t allocated_size(const void* block) {
    return tc_malloc_size(const_cast<void*>(block));
}

constinit std::atomic<bool> others_are_held{false};

void wait_while_held(const void* /*block*/, std::size_t /*requested*/) {
    constexpr int patience_ms = 5000;
    if (mem_thread_state.writes_reports) return;
    for (int waited = 0; waited < patience_ms && others_are_held.load(); ++waited) _Thrd_rest();
}

bool is_owned(const void* block) {
    if (MallocExtension_GetOwnership(block) == owned) return true;
    if (block == nullptr) mem_memory_is_scarce = true;
    return false;
}

}  // namespace

// Each hook is a frame of its own, since the walk of a stack begins at the hook's return address.
__attribute__((noinline)) void mem_tbb_new_hook(const void* block, std::size_t requested) {
    mem_expect_alloc(reinterpret_cast<std::uint64_t>(block));
    if (!is_owned(block)) return;
    const std::size_t allocated = allocated_size(block);
    if (!may_track(mem_thread_state)) {
        mem_tbb_profiler_counters.count_alloc(requested, allocated);
        return;
    }
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_track_alloc(reinterpret_cast<std::uint64_t>(block), requested, allocated,
                        stack_walk_start(__builtin_frame_address(0)));
}

__attribute__((noinline)) void mem_tbb_delete_hook(const void* block) {
    mem_expect_dealloc(reinterpret_cast<std::uint64_t>(block));
    if (MallocExtension_GetOwnership(block) != owned) return;
    const std::size_t allocated = allocated_size(block);
    if (!may_track(mem_thread_state)) {
        mem_tbb_profiler_counters.count_dealloc(allocated);
        return;
    }
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_track_dealloc(reinterpret_cast<std::uint64_t>(block), allocated);
}

void mem_attach_tracker_hooks() {
    MallocHook_AddNewHook(mem_tbb_new_hook);
    MallocHook_AddDeleteHook(mem_tbb_delete_hook);
}

void mem_detach_tracker_hooks() {
    MallocHook_RemoveNewHook(mem_tbb_new_hook);
    MallocHook_RemoveDeleteHook(mem_tbb_delete_hook);
}

void mem_hold_other_threads() {
    others_are_held = true;
    MallocHook_AddNewHook(wait_while_held);
}

void mem_let_other_threads_go() {
    MallocHook_RemoveNewHook(wait_while_held);
    others_are_held = false;
}
