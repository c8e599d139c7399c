#include "mem/paths/thread_stack.h"

#include <new>

#include "mem/base/spin_lock.h"
#include "platform/mapped_memory.h"
#include "platform/thread.h"

constinit thread_local MEM_THREAD_STACK* mem_thread_stack_of_this = nullptr;

namespace {

constinit MEM_SPIN_LOCK free_lock;
constinit MEM_THREAD_STACK* first_free MEM_GUARDED_BY(free_lock) = nullptr;

// For an exiting thread. Events that it makes even after this take another one.
void give_back() {
    MEM_THREAD_STACK* stack = mem_thread_stack_of_this;
    if (stack == nullptr) return;
    mem_thread_stack_of_this = nullptr;
    stack->frames.forget();
    stack->latest_block = 0;
    const MEM_LOCK_SCOPE guard(free_lock);
    stack->next_free = first_free;
    first_free = stack;
}

MEM_THREAD_STACK* take_free() {
    const MEM_LOCK_SCOPE guard(free_lock);
    MEM_THREAD_STACK* stack = first_free;
    if (stack != nullptr) first_free = stack->next_free;
    return stack;
}

}  // namespace

__attribute__((noinline, cold)) MEM_THREAD_STACK* mem_take_thread_stack() {
    MEM_THREAD_STACK* stack = take_free();
    if (stack == nullptr) {
        void* memory = map_memory(sizeof(MEM_THREAD_STACK));
        if (memory == nullptr) return nullptr;
        stack = new (memory) MEM_THREAD_STACK;
    }
    run_at_thread_exit(give_back);
    mem_thread_stack_of_this = stack;
    return stack;
}

// At any moment the list is whole.
void mem_renew_thread_stacks() MEM_LOCKS_UNCHECKED {
    free_lock.unlock();
}
