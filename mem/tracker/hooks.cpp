#include "mem/tracker/hooks.h"

#include <atomic>

#include "mem/base/allocator_slots.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/scarcity.h"
#include "mem/base/thread_state.h"
#include "mem/tracker/events.h"
#include "mem/tracker/fork_gate.h"
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

struct NO_GATE {};
struct FORK_GATE : MEM_GATE_SCOPE {
    FORK_GATE() : MEM_GATE_SCOPE(*mem_fork_gate, MEM_MOUSE) {}
};

template <class GATE>
__attribute__((always_inline)) inline void take_alloc(const void* block, std::size_t requested,
                                                      const STACK_WALK_START& start) {
    mem_expect_alloc(reinterpret_cast<std::uint64_t>(block));
    if (!is_owned(block)) return;
    const std::size_t allocated = allocated_size(block);
    if (!may_track(mem_thread_state)) {
        mem_tbb_profiler_counters.count_alloc(requested, allocated);
        return;
    }
    const MEM_IN_TRACKER_SCOPE inside;
    [[maybe_unused]] const GATE gate;
    mem_tbb_track_alloc(reinterpret_cast<std::uint64_t>(block), requested, allocated, start);
}

template <class GATE>
__attribute__((always_inline)) inline void take_dealloc(const void* block) {
    mem_expect_dealloc(reinterpret_cast<std::uint64_t>(block));
    if (MallocExtension_GetOwnership(block) != owned) return;
    const std::size_t allocated = allocated_size(block);
    if (!may_track(mem_thread_state)) {
        mem_tbb_profiler_counters.count_dealloc(allocated);
        return;
    }
    const MEM_IN_TRACKER_SCOPE inside;
    [[maybe_unused]] const GATE gate;
    mem_tbb_track_dealloc(reinterpret_cast<std::uint64_t>(block), allocated);
}

}  // namespace

// Each hook is a frame of its own, since the walk of a stack begins at the hook's return address.
#define MEM_HOOK __attribute__((noinline))

MEM_HOOK void mem_tbb_new_hook(const void* block, std::size_t requested) {
    take_alloc<NO_GATE>(block, requested, stack_walk_start(__builtin_frame_address(0)));
}

MEM_HOOK void mem_tbb_delete_hook(const void* block) {
    take_dealloc<NO_GATE>(block);
}

MEM_HOOK void mem_tbb_new_hook_of_forks(const void* block, std::size_t requested) {
    take_alloc<FORK_GATE>(block, requested, stack_walk_start(__builtin_frame_address(0)));
}

MEM_HOOK void mem_tbb_delete_hook_of_forks(const void* block) {
    take_dealloc<FORK_GATE>(block);
}

#undef MEM_HOOK

void mem_attach_tracker_hooks() {
    const bool forks = mem_fork_gate != nullptr;
    MallocHook_AddNewHook(forks ? mem_tbb_new_hook_of_forks : mem_tbb_new_hook);
    MallocHook_AddDeleteHook(forks ? mem_tbb_delete_hook_of_forks : mem_tbb_delete_hook);
}

void mem_detach_tracker_hooks() {
    const bool forks = mem_fork_gate != nullptr;
    MallocHook_RemoveNewHook(forks ? mem_tbb_new_hook_of_forks : mem_tbb_new_hook);
    MallocHook_RemoveDeleteHook(forks ? mem_tbb_delete_hook_of_forks : mem_tbb_delete_hook);
}

void mem_hold_other_threads() {
    others_are_held = true;
    MallocHook_AddNewHook(wait_while_held);
}

void mem_let_other_threads_go() {
    MallocHook_RemoveNewHook(wait_while_held);
    others_are_held = false;
}
