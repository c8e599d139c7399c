// Call sites for events with made-up addresses and sizes. Their lines stand in the expected reports.
#pragma once

#include "tests/tracker/tracked_events.h"

// The statement after a call keeps the caller's frame on the stack, and equal functions from becoming one.
__attribute__((noinline)) inline void read_codes(const BLOCK& block) {
    allocate(block);
    asm volatile("" ::"i"(1));
}

__attribute__((noinline)) inline void build_index(const BLOCK& block) {
    allocate(block);
    asm volatile("" ::"i"(2));
}

__attribute__((noinline)) inline void mem_wrapper(const BLOCK& block) {
    allocate(block);
    asm volatile("" ::"i"(3));
}

// By way of a function that is filtered.
__attribute__((noinline)) inline void look_up(const BLOCK& block) {
    mem_wrapper(block);
    asm volatile("" ::"i"(4));
}

__attribute__((noinline)) inline void allocate_without_caller(const BLOCK& block) {
    static const std::uint64_t zeros[64] = {};  // a stack that has ended
    const auto sp = reinterpret_cast<std::uint64_t>(zeros);
    track(block, {stack_walk_start(__builtin_frame_address(0)).pc, sp, sp});
}

// From a stack with a filtered function and nothing else.
__attribute__((noinline)) inline void mem_without_caller(const BLOCK& block) {
    allocate_without_caller(block);
    asm volatile("" ::"i"(5));
}
