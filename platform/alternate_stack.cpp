#include "platform/alternate_stack.h"

#include <sys/mman.h>

#include <csignal>
#include <new>

namespace {

// The guard page at the low end, and the object itself at the high end. A host's callback runs on the rest;
// the registers that the kernel stores there take up to some 12 KiB.
constexpr std::size_t guard_bytes = 4096;
constexpr std::size_t mapped_bytes = guard_bytes + 128 * 1024;
constexpr std::size_t stack_bytes = mapped_bytes - guard_bytes - sizeof(ALTERNATE_STACK);

unsigned char* stack_of(ALTERNATE_STACK* owner) {
    return reinterpret_cast<unsigned char*>(owner) - stack_bytes;
}

stack_t current_stack() {
    stack_t current = {};
    sigaltstack(nullptr, &current);
    return current;
}

}  // namespace

ALTERNATE_STACK* ALTERNATE_STACK::create() {
    void* const mapped =
        mmap(nullptr, mapped_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapped == MAP_FAILED) return nullptr;
    mprotect(mapped, guard_bytes, PROT_NONE);
    return new (static_cast<unsigned char*>(mapped) + guard_bytes + stack_bytes) ALTERNATE_STACK;
}

void ALTERNATE_STACK::destroy() {
    munmap(stack_of(this) - guard_bytes, mapped_bytes);
}

void ALTERNATE_STACK::use() {
    if ((current_stack().ss_flags & SS_DISABLE) == 0) return;
    stack_t own = {};
    own.ss_sp = stack_of(this);
    own.ss_size = stack_bytes;
    sigaltstack(&own, nullptr);
}

void ALTERNATE_STACK::stop_using() {
    if (current_stack().ss_sp != stack_of(this)) return;
    stack_t none = {};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
}

void give_alternate_stack() {
    if ((current_stack().ss_flags & SS_DISABLE) == 0) return;
    if (ALTERNATE_STACK* const stack = ALTERNATE_STACK::create()) stack->use();
}

bool is_on_alternate_stack(std::uintptr_t address) {
    const stack_t current = current_stack();
    return (current.ss_flags & SS_DISABLE) == 0 &&
           address - reinterpret_cast<std::uintptr_t>(current.ss_sp) < current.ss_size;
}
