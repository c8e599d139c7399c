// What may be read of a stack. Reads of the thread's own stack are checked against its bounds; any other
// stack (a coroutine's, an alternate signal stack) is probed page by page.
#pragma once

#include <cstdint>

namespace unwind {

constexpr std::uint64_t PAGE_SIZE_IN_BYTES = 4096;

struct STACK_BOUNDS {
    std::uint64_t begin;
    std::uint64_t end;

    bool holds(std::uint64_t sp) const { return sp >= begin && sp < end; }
};

// The part of this thread's stack that is known so far; empty in a new thread.
extern constinit thread_local STACK_BOUNDS known_stack __attribute__((tls_model("initial-exec")));

// Where the thread's stack ends when sp lies on it, so that all of it from sp on can be read; sp itself when
// it lies elsewhere. May widen known_stack.
std::uint64_t end_of_stack_around(std::uint64_t sp);

// Whether the page that holds address can be read. One system call.
bool page_is_readable(std::uint64_t address);

}  // namespace unwind
