#include "platform/process_life.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

void run_in_forked_child(void (*action)()) {
    pthread_atfork(nullptr, nullptr, action);
}

void run_around_fork(void (*before)(), void (*in_parent)(), void (*in_child)()) {
    pthread_atfork(before, in_parent, in_child);
}

void clear_in_forked_child(void* pages, std::size_t size) {
    madvise(pages, size, MADV_WIPEONFORK);
}

bool is_only_thread() {
    // The kernel counts a folder's links; this one has a sub-folder for each thread, beside its own two.
    struct stat tasks {};
    return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 3;
}

void wait_for_process_end() {
    for (;;) pause();  // a signal handler wakes it
}
