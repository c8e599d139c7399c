// The ends of the process that need no failing allocator and no fault, each in a forked child. How real
// processes end is tested with the process tests.
#include <gtest/gtest.h>

#include <thread>

#include "ktl_mem/out_of_memory.h"
#include "mem/base/counted_lock.h"
#include "mem/base/thread_state.h"
#include "mem/frame/fatal_exit.h"
#include "mem/frame/reserves.h"
#include "platform/ktl_main_globals.h"

// This program has enabled exception handling.
extern "C" bool main_eh_enabled() {
    return true;
}

namespace {

void say(const char* text) {
    std::fputs(text, stderr);
}

void run_out() {
    mem_set_out_of_memory_handler([] {
        mem_allocate_reserve_buffers();
        say(mem_thread_state.reserve_buffer == nullptr ? "none\n" : "some\n");
    });
    mem_out_of_memory();
}

void run_out_in_an_exit_action() {
    std::atexit([] { say("second\n"); });
    std::atexit([] { say("first\n"), mem_out_of_memory(); });
    mem_allocate_reserve_buffers();
    run_out();
}

void run_out_inside_the_tracker() {
    mem_create_lock();
    std::thread([] { mem_lock.lock(); }).join();  // never released
    mem_thread_state.in_tracker = true;
    run_out();
}

TEST(Ending, TakesItsFormInEveryState) {
    const std::tuple<void (*)(), int, const char*> cases[] = {
        {run_out_in_an_exit_action, 1, "^none\nfirst\nsecond\n$"},
        {run_out_inside_the_tracker, 1,
         "^\nOut of memory .*\nMEM: memory ran out inside the tracker, no .*\n$"},
        {[] { mem_fatal_structured_exception(nullptr); }, 2,
         "^Fatal error: SE -1 thrown\\. The Veldrin soft"},
        {[] { mem_run_entry_point([] { throw 1; }); }, 2, "^Fatal error: Program termination requested"},
        {[] { main_terminate_called(true), mem_terminate_handler(); }, 2,
         "^\n\\*\\*\\* Internal Error: Recursive"},
        {[] { main_terminate_called(true), mem_fatal_structured_exception(nullptr); }, 2,
         "Error: Recursive term"},
        {[] { main_terminate_called(true), mem_se_translator(11, nullptr), std::_Exit(7); }, 7, "^$"},
    };
    for (const auto& [event, exit_code, output] : cases)
        EXPECT_EXIT(event(), testing::ExitedWithCode(exit_code), output);
}

}  // namespace
