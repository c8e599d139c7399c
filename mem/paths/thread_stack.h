// What each thread keeps for its next path. It is too large for thread-local storage, and lies in memory that
// threads take over from each other.
#pragma once

#include <cstdint>

#include "platform/kept_stack.h"

struct MEM_THREAD_STACK {
    KEPT_STACK frames;               // their tags are the nodes of the paths that end there
    std::uint32_t tagged = 0;        // how many of the kept frames, from the outermost, have a tag
    std::uint64_t owner = 0;         // the paths that the tags belong to
    std::uint64_t latest_block = 0;  // address of the thread's latest allocation
    MEM_THREAD_STACK* next_free = nullptr;
};

extern constinit thread_local MEM_THREAD_STACK* mem_thread_stack_of_this
    __attribute__((tls_model("initial-exec")));
MEM_THREAD_STACK* mem_take_thread_stack();

// In a forked child, where nobody gives back what another thread of the parent was taking.
void mem_renew_thread_stacks();

// Null when there is no memory.
inline MEM_THREAD_STACK* mem_thread_stack() {
    MEM_THREAD_STACK* known = mem_thread_stack_of_this;
    return known != nullptr ? known : mem_take_thread_stack();
}
