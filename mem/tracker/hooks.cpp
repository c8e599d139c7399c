#include "mem/tracker/hooks.h"

#include "mem/base/allocator_slots.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/thread_state.h"
#include "mem/tracker/events.h"

namespace {

constexpr int owned = 1;

bool may_track(const MEM_THREAD_STATE& state) {
    return !state.in_tracker && !state.tracking_blocked;
}

std::size_t allocated_size(const void* block) {
    return tc_malloc_size(const_cast<void*>(block));
}

}  // namespace

// Each hook is a frame of its own, since the walk of a stack begins at the hook's return address.
__attribute__((noinline)) void mem_tbb_new_hook(const void* block, std::size_t requested) {
    mem_expect_alloc(reinterpret_cast<std::uint64_t>(block));
    if (MallocExtension_GetOwnership(block) != owned) return;
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
