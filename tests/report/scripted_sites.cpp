#include "tests/report/scripted_sites.h"

#include "mem/base/thread_state.h"
#include "mem/tracker/events.h"

namespace {

void track(const BLOCK& block, const STACK_WALK_START& start) {
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_track_alloc(block.address, block.requested, block.allocated, start);
}

__attribute__((noinline)) void allocate(const BLOCK& block) {
    track(block, stack_walk_start(__builtin_frame_address(0)));
}

__attribute__((noinline)) void allocate_without_caller(const BLOCK& block) {
    static const std::uint64_t zeros[64] = {};  // a stack that has ended
    const auto sp = reinterpret_cast<std::uint64_t>(zeros);
    track(block, {stack_walk_start(__builtin_frame_address(0)).pc, sp, sp});
}

}  // namespace

// The statement after a call keeps the caller's frame on the stack, and equal functions from becoming one.
void read_codes(const BLOCK& block) {
    allocate(block);
    asm volatile("" ::"i"(1));
}

void build_index(const BLOCK& block) {
    allocate(block);
    asm volatile("" ::"i"(2));
}

__attribute__((noinline)) static void mem_wrapper(const BLOCK& block) {
    allocate(block);
    asm volatile("" ::"i"(3));
}

void look_up(const BLOCK& block) {
    mem_wrapper(block);
    asm volatile("" ::"i"(4));
}

void mem_without_caller(const BLOCK& block) {
    allocate_without_caller(block);
    asm volatile("" ::"i"(5));
}

void free_block(const BLOCK& block) {
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_track_dealloc(block.address, block.allocated);
}
