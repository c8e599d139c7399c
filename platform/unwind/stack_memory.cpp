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

// How far the stack is followed in one go: more probes than this would cost more than they save later.
constexpr std::uint64_t LONGEST_EXTENSION = std::uint64_t{1} << 20;

std::uint64_t page_of(std::uint64_t address) {
    return address & ~(PAGE_SIZE_IN_BYTES - 1);
}

bool all_readable(std::uint64_t begin, std::uint64_t end) {
    for (std::uint64_t page = begin; page < end; page += PAGE_SIZE_IN_BYTES) {
        if (!page_is_readable(page)) return false;
    }
    return true;
}

// A thread's control block lies at the top of its stack, whoever supplied that stack. Asking the thread
// library for the bounds instead would allocate and lock. The bottom is learned as the stack grows down.
void extend_thread_stack(std::uint64_t sp) {
    const auto top = reinterpret_cast<std::uint64_t>(pthread_self());
    const bool nothing_known = known_stack.end != top;
    const std::uint64_t from = page_of(sp);
    const std::uint64_t to = nothing_known ? top : known_stack.begin;
    if (from >= to || to - from > LONGEST_EXTENSION || !all_readable(from, to)) return;
    known_stack.begin = from;
    known_stack.end = top;
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
    } else {
        extend_thread_stack(sp);
    }
    return known_stack.holds(sp) ? known_stack.end : sp;
}

}  // namespace unwind
