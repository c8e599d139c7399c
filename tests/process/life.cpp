// Turns that the life of a process takes while its threads allocate and free: it execs, ends, loads and
// unloads. What an allocation must leave alone.
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <iostream>

#include "ktl_mem/mem.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"
#include "tests/process/call_sites.h"
#include "tests/process/module.h"

void (*module_action)() = nullptr;

namespace {

const BEHAVIOUR allocate_once("allocate", [](char**) { std::free(allocate_at<103>()); });

const BEHAVIOUR exec_again("exec", [](char**) {
    const Meanwhile busy(4, put_a_block);
    execl("/proc/self/exe", "again", "allocate", nullptr);
    std::_Exit(3);
});

const BEHAVIOUR exit_with_live_threads("exit", [](char**) {
    const Meanwhile busy(4, put_a_block);
    while (blocks_put < 10'000) std::this_thread::yield();
    std::exit(5);
});

const BEHAVIOUR exit_with_bins_on_a_thread("exit_with_bins", [](char**) {
    static std::atomic<int> opened{0};
    std::thread([] {
        const std::string tag = "a tag that has a block of its own";
        for (std::uint64_t unread = 0;; ++opened) {
            for (int i = 0; i < 64; ++i) mem_open_profile_bin("bin", tag);
            for (int i = 0; i < 64; ++i) mem_close_profile_bin(tag, &unread, &unread, &unread);
        }
    }).detach();
    while (opened < 2) std::this_thread::yield();
    std::exit(5);
});

const BEHAVIOUR exit_on_a_thread("exit_on_a_thread", [](char**) {
    const Meanwhile busy(4, put_a_block);
    std::thread([] { std::exit(6); }).detach();
    for (;;) put_a_block();
});

// The host's callback for messages ends the process; the tracker calls it inside an event.
const BEHAVIOUR exit_inside_the_tracker("exit_inside", [](char**) {
    mem_set_msg_local_vdebug_callback([](const char*, const char*, va_list) {
        static std::atomic<bool> ending{false};
        if (!ending.exchange(true)) std::exit(7);
        return true;
    });
    const Meanwhile busy(4, put_a_block);
    for (;;) put_a_block();
});

const BEHAVIOUR shut_down_by_itself("shut_down", [](char**) {
    const Meanwhile busy(4, put_a_block);
    mem_shutdown_tbb_tracking();
    mem_shutdown_tbb_tracking();
});

const BEHAVIOUR keep_errno("errno", [](char**) {
    int spoiled = 0;
    const auto check = [&spoiled] { spoiled += std::exchange(errno, 1234) != 1234; };
    errno = 1234;
    for (void* (*const allocate_here)() : sites_from<0>) {
        void* const block = allocate_here();
        check();
        std::free(block);
        check();
        mem_notify_memory_mapping_added(&spoiled, 4096);
        mem_notify_memory_mapping_removed(&spoiled, 4096);
        check();
    }
    std::cout << "spoiled " << spoiled << '\n';
});

// A request to cancel a thread waits for a place where POSIX lets it act, and no allocation is one.
const BEHAVIOUR cancel_while_allocating("cancel", [](char**) {
    static std::atomic<bool> survived{false};
    pthread_t thread{};
    const auto allocate_everywhere = [](void*) -> void* {
        pthread_cancel(pthread_self());
        for (void* (*const allocate_here)() : sites_from<2000>) std::free(allocate_here());
        survived = true;
        pthread_testcancel();
        return nullptr;
    };
    pthread_create(&thread, nullptr, allocate_everywhere, nullptr);
    void* result = nullptr;
    pthread_join(thread, &result);
    std::cout << "survived " << survived << " cancelled " << (result == PTHREAD_CANCELED) << '\n';
});

const BEHAVIOUR fail_to_allocate("null", [](char**) {
    const std::int64_t before = mem_get_stats().current.blocks;
    volatile std::size_t too_much = std::size_t{1} << 60;
    errno = 0;
    const bool null = std::malloc(too_much) == nullptr && std::calloc(too_much, 1) == nullptr;
    const bool told = errno == ENOMEM, same = mem_get_stats().current.blocks == before;
    std::cout << "null " << null << " errno " << told << " same " << same << '\n';
});

// The module's constructor holds the loader's lock and waits for a thread of this program to have allocated,
// from a place that the tracker has never seen.
std::atomic<std::size_t> wanted{0}, allocated{0};

void wait_for_an_allocation() {
    const std::size_t round = ++wanted;
    while (allocated != round) std::this_thread::yield();
}

void allocate_when_wanted() {
    const std::size_t round = wanted;
    if (allocated != round) std::free(sites_from<1000>[round % site_count]());
    allocated = round;
    std::this_thread::yield();
}

const BEHAVIOUR load_and_unload("load", [](char** arguments) {
    const Meanwhile busy(4, put_a_block);
    const Meanwhile waited_for(1, allocate_when_wanted);
    module_action = wait_for_an_allocation;
    for (int i = 0; i < 20; ++i) {
        void* const module = dlopen(arguments[0], RTLD_NOW);
        std::free(reinterpret_cast<decltype(&module_block)>(dlsym(module, "module_block"))(77));
        dlclose(module);
    }
});

}  // namespace
