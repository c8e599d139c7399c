// A module with one call site. Copies of it under other names are modules of their own.
#include "tests/process/module.h"

#include <pthread.h>

#include <cstdlib>

#include "tests/process/kept.h"

namespace {

struct LIFE {
    LIFE() { run_action(); }
    ~LIFE() { run_action(); }
    static void run_action() {
        if (&module_action != nullptr && module_action != nullptr) module_action();
    }
} life;

}  // namespace

const unsigned module_block_line = __LINE__ + 2;
void* module_block(unsigned long bytes) {
    return kept(std::malloc(bytes));
}

namespace {

thread_local void* data_of_thread[64];

void* touch(void* unused) {
    kept(data_of_thread)[0] = unused;
    void* volatile block = std::malloc(50);
    std::free(block);
    return unused;
}

}  // namespace

// With a stack so small that the C library keeps those of many threads for reuse.
void module_thread() {
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, std::size_t{256} << 10);
    pthread_t thread;
    if (pthread_create(&thread, &small, touch, nullptr) == 0) pthread_join(thread, nullptr);
    pthread_attr_destroy(&small);
}
