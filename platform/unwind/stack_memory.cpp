#include "platform/unwind/stack_memory.h"

#include <pthread.h>
#include <sys/syscall.h>

// The loader's note of where the main thread's stack begins.
extern "C" void* __libc_stack_end;  // NOLINT(readability-identifier-naming)

namespace unwind {

constinit thread_local STACK_BOUNDS known_stack __attribute__((tls_model("initial-exec"))) = {0, 0};

namespace {

// The kernel keeps at least this much address space below the main stack free of other mappings, so all of
// it that lies above a live stack pointer is stack.
constexpr std::uint64_t MAIN_STACK_RESERVE = std::uint64_t{128} << 20;

// How much of a stack is probed in one go while nothing is known of it, and where the frames lead the way.
constexpr std::uint64_t LONGEST_START = std::uint64_t{1} << 20;
constexpr std::uint64_t LONGEST_EXTENSION = std::uint64_t{64} << 20;

// Where a stack pointer was last found to lie on another stack than the thread's, and how far around it
// nobody asks again.
constinit thread_local std::uint64_t other_stack __attribute__((tls_model("initial-exec"))) = 0;
constexpr std::uint64_t OTHER_STACK_SIZE = std::uint64_t{64} << 10;

std::uint64_t page_of(std::uint64_t address) {
    return address & ~(PAGE_SIZE_IN_BYTES - 1);
}

// From the top, since the guard below a thread's stack stops a pointer elsewhere at once.
bool all_readable(std::uint64_t begin, std::uint64_t end) {
    for (std::uint64_t page = page_of(end - 1); page >= begin; page -= PAGE_SIZE_IN_BYTES) {
        if (!page_is_readable(page)) return false;
    }
    return true;
}

// A thread's control block lies at the top of its stack, whoever supplied that stack. Asking the thread
// library for the bounds instead would allocate and lock. The bottom is learned as the stack grows down.
std::uint64_t top_of_thread_stack() {
    return reinterpret_cast<std::uint64_t>(pthread_self());
}

void extend(std::uint64_t sp, std::uint64_t to, std::uint64_t most) {
    const std::uint64_t from = page_of(sp);
    if (from < to && to - from <= most && all_readable(from, to)) {
        known_stack = {from, top_of_thread_stack()};
    } else {
        other_stack = sp;
    }
}

bool is_near_other_stack(std::uint64_t sp) {
    return sp + OTHER_STACK_SIZE - other_stack < 2 * OTHER_STACK_SIZE;
}

}  // namespace

// The call fails for its first argument either way, but looks at the address before.
bool page_is_readable(std::uint64_t address) {
    std::int64_t result = SYS_rt_sigprocmask;
    register std::int64_t size asm("r10") = 8;
    asm volatile("syscall"
                 : "+a"(result)
                 : "D"(-1L), "S"(page_of(address)), "d"(0L), "r"(size)
                 : "rcx", "r11", "memory");
    constexpr std::int64_t BAD_ADDRESS = -14;
    return result != BAD_ADDRESS;
}

std::uint64_t end_of_stack_around(std::uint64_t sp) {
    const auto main_end = reinterpret_cast<std::uint64_t>(__libc_stack_end);
    if (sp < main_end && main_end - sp <= MAIN_STACK_RESERVE) {
        known_stack = {main_end - MAIN_STACK_RESERVE, main_end};
    } else if (known_stack.end == 0 && !is_near_other_stack(sp)) {
        extend(sp, top_of_thread_stack(), LONGEST_START);
    }
    return known_stack.holds(sp) ? known_stack.end : sp;
}

bool may_be_deeper_in_stack(std::uint64_t sp) {
    return known_stack.end == top_of_thread_stack() && sp < known_stack.begin && !is_near_other_stack(sp);
}

void widen_known_stack(std::uint64_t sp, bool frames_lead_there) {
    if (frames_lead_there) {
        extend(sp, known_stack.begin, LONGEST_EXTENSION);
    } else {
        other_stack = sp;
    }
}

}  // namespace unwind
