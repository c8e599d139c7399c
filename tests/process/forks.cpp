// Children of a process whose threads are in the middle of things.
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

#include "ktl_mem/statistics.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"
#include "tests/process/call_sites.h"
#include "tests/tracker/all_calls.h"

namespace {

// Whether it ended with status 0.
bool child_succeeds(void (*live)()) {
    const pid_t child = fork();
    if (child == 0) live();
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

void switch_the_word() {
    mem_disable_tracking(MEM_TRACKING_AUXILIARY_TIMELINE);
    mem_enable_tracking(MEM_TRACKING_AUXILIARY_TIMELINE);
    pause_storm();
}

// Everything that a child may call, while locks may be held by threads that are not there. A report of its
// own would have the name "child".
void call_everything() {
    alarm(20);
    const bool silent = dump_everything().empty();
    pass_a_phase();
    flush_and_sample();
    reset();
    switch_the_word();
    mem_enable_tracking(MEM_TRACKING_ALL);
    mem_set_tbb_memory_tracking_enabled(true);
    pass_a_phase();
    mem_set_tbb_exe_string("child");
    mem_notify_memory_mapping_added(nullptr, 4096);
    mem_shutdown_tbb_tracking();
    put_a_block();
    if (!silent) _exit(3);
}

const BEHAVIOUR fork_often("forks", [](char** arguments) {
    const Meanwhile busy(8, put_a_block);
    const Meanwhile phases(1, pass_a_phase);
    const Meanwhile flushes(1, flush_and_sample);
    const Meanwhile resets(1, reset);
    const Meanwhile dumps(1, dump_everything);
    const Meanwhile switches(1, switch_the_word);
    int failed = 0;
    for (int i = std::atoi(arguments[0]); i > 0; --i) {
        failed += !child_succeeds([] { call_everything(), std::exit(0); });
        failed += !child_succeeds([] { call_everything(), _exit(0); });
    }
    std::cout << "failed " << failed << '\n';
});

// A library that comes before all others may allocate in a fork handler of its own. The allocator's handler
// has not run then, so that there are only the blocks that the thread has at hand.
bool early_handler_allocates = false;
void allocate_in_child() {
    if (early_handler_allocates) allocate_at<104>();
}
__attribute__((section(".preinit_array"), used)) void (*const first_of_all)() = [] {
    pthread_atfork(nullptr, nullptr, allocate_in_child);
};

const BEHAVIOUR fork_with_an_early_handler("early_fork_handler", [](char**) {
    early_handler_allocates = true;
    void* at_hand[] = {allocate_at<104>(), allocate_at<104>()};
    for (void* block : at_hand) std::free(block);
    static const std::int64_t before = mem_get_stats().current.blocks;
    const bool untracked =
        child_succeeds([] { std::_Exit(mem_get_stats().current.blocks == before ? 0 : 1); });
    std::cout << "untracked " << untracked << '\n';
});

}  // namespace
