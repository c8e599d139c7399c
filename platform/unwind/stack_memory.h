// What may be read of a stack. Reads of the thread's own stack are checked against its bounds; of any other
// stack (a coroutine's, an alternate signal stack) the page that the stack pointer lies in can be read, and
// those above are probed one by one.
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
// it lies elsewhere, or deeper than is known. May set known_stack.
std::uint64_t end_of_stack_around(std::uint64_t sp);

// A stack pointer below known_stack is one of the thread's own stack if the frames lead from it to there. A
// stack that a program has put below a thread's must not be taken for a part of it: the program may unmap
// either. Widens known_stack if all that lies between can be read; otherwise notes that it need not be asked
// again here.
bool may_be_deeper_in_stack(std::uint64_t sp);
void widen_known_stack(std::uint64_t sp, bool frames_lead_there);

// The end of the page that a live frame's stack pointer lies in. At the start of a page nothing is known of
// it.
inline std::uint64_t end_of_page(std::uint64_t sp) {
    return (sp + PAGE_SIZE_IN_BYTES - 1) & ~(PAGE_SIZE_IN_BYTES - 1);
}

// Whether the page that holds address can be read. One system call.
bool page_is_readable(std::uint64_t address);

}  // namespace unwind
