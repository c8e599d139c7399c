#include "platform/ktl_thr.h"
#include "platform/thread_wrappers.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>

struct THR_THREAD {
    void* (*function)(void*);
    void* argument;
    pthread_t thread;
};

namespace {

// The innermost wrapper: runs the thread's own function.
void* run_function(void* thread, void* argument) {
    return static_cast<THR_THREAD*>(thread)->function(argument);
}

std::atomic<THR_WRAPPER> outermost{run_function};
std::atomic<void (*)()> out_of_memory{nullptr};

void* run_wrapped(void* thread) {
    return outermost.load()(thread, static_cast<THR_THREAD*>(thread)->argument);
}

// Null only when there is no handler, or it returned and there is still no memory.
void* allocate(std::size_t size) {
    void* block = std::malloc(size);
    if (block != nullptr) return block;
    void (*const handler)() = out_of_memory.load();
    if (handler == nullptr) return nullptr;
    handler();
    return std::malloc(size);
}

}  // namespace

// Chaining the outermost wrapper once more would make it its own successor, which never ends.
void thr_thread_set_next_wrapper_func(THR_WRAPPER wrapper, THR_WRAPPER* next) {
    const THR_WRAPPER before = outermost.load();
    if (before == wrapper) return;
    *next = before;
    outermost.store(wrapper);
}

void thr_set_new_handler(void (*handler)()) {
    out_of_memory.store(handler);
}

bool thr_thread_start(THR_THREAD** thread, void* (*function)(void*), void* argument) {
    void* const block = allocate(sizeof(THR_THREAD));
    if (block == nullptr) return false;
    auto* started = new (block) THR_THREAD{function, argument, {}};
    if (pthread_create(&started->thread, nullptr, run_wrapped, started) != 0) {
        std::free(block);
        return false;
    }
    *thread = started;
    return true;
}

void* thr_thread_join(THR_THREAD* thread) {
    void* result = nullptr;
    pthread_join(thread->thread, &result);
    std::free(thread);
    return result;
}
