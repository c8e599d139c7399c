// Turns that the life of a process takes while its threads allocate and free: it execs, ends, loads and
// unloads. What an allocation must leave alone.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <iostream>
#include <latch>

#include "ktl_mem/mem.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"
#include "tests/process/call_sites.h"
#include "tests/process/module.h"

void (*module_action)() = nullptr;

namespace {

const BEHAVIOUR exec_again("exec", [](char**) {
    const Meanwhile busy(4, put_a_block);
    execl("/proc/self/exe", "again", "script", "malloc", "a", "16", nullptr);
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

// Copies of a module that has data for each thread, each with call sites that nobody has seen. The C library
// makes room for that data, by an allocation and with a lock of the loader held, when it starts a thread.
const BEHAVIOUR load_modules_and_start_threads("load_with_threads", [](char** arguments) {
    constexpr int copies = 96;
    std::vector<std::jthread> threads;
    for (int copy = 0; copy < copies; ++copy) {
        const std::string path = std::filesystem::current_path() / (std::to_string(copy) + ".so");
        std::filesystem::copy_file(arguments[0], path);
        void* const module = dlopen(path.c_str(), RTLD_NOW);
        threads.emplace_back(reinterpret_cast<decltype(&module_thread)>(dlsym(module, "module_thread")));
        if (copy % 16 == 15) threads.clear();
    }
});

// All end it at the same moment, and one of them may have run out of memory.
const BEHAVIOUR exit_on_eight_threads("exit_on_eight_threads", [](char** arguments) {
    static std::latch all(8);
    void (*const end)() = arguments[0] == std::string("call") ? mem_out_of_memory : [] { std::exit(1); };
    for (int thread = 1; thread < 8; ++thread)
        std::thread([] { all.arrive_and_wait(), std::exit(1); }).detach();
    all.arrive_and_wait();
    end();
});

// The module's constructor allocates with the loader's lock held.
const BEHAVIOUR switch_while_loading("switch_while_loading", [](char** arguments) {
    module_action = put_a_block;
    const Meanwhile busy(2, put_a_block);
    const Meanwhile loads(1, [path = arguments[0]] { dlclose(dlopen(path, RTLD_NOW)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    mem_enable_tracking(MEM_TRACKING_PROFILE_BIN_TAGS);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
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

// A stream that ends the process at the write of a chosen number.
struct LAST_WORDS : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize length) override {
        if (--left == 0) std::exit(8);
        return length;
    }
    int left = 0;
};

const BEHAVIOUR exit_inside_a_dump("exit_in_dump", [](char** arguments) {
    LAST_WORDS words;
    words.left = std::atoi(arguments[0]);
    std::ostream last(&words);
    mem_user_snapshot_tracking_data();
    mem_dump_tbb_fileline_tracking(last);
    mem_dump_tbb_subsystem_tracking(last);
    mem_dump_tbb_module_tracking(last, last);
    mem_dump_tbb_profile_bin_tag_timeline_tracking(last, last);
});

// At another moment of its calls each time.
void cancel_while_asking(int round) {
    std::atomic<int> calls{0};
    pthread_t asks;
    const auto ask = [](void* count) {
        for (;; ++*static_cast<std::atomic<int>*>(count))
            mem_info_get_process_page_fault_count(), pthread_testcancel();
        return count;
    };
    pthread_create(&asks, nullptr, ask, &calls);
    while (calls < 2) std::this_thread::yield();
    for (std::atomic<int> spins{0}; spins < round * 37 % 200 * 20;) ++spins;
    pthread_cancel(asks);
    pthread_join(asks, nullptr);
}

// A request to cancel a thread waits for a place where POSIX lets it act, and no allocation is one.
const BEHAVIOUR cancel_while_allocating("cancel", [](char**) {
    std::atomic<bool> survived{false}, went_on{false};
    std::thread([&] {
        pthread_cancel(pthread_self());
        for (void* (*const allocate_here)() : sites_from<2000>) std::free(allocate_here());
        survived = true;
        pthread_testcancel();
        went_on = true;
    }).join();
    std::cout << "survived " << survived << " cancelled " << !went_on << '\n';
    for (int round = 0; round < 200; ++round) cancel_while_asking(round);
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

// Coroutines of one page, each with a call site that nobody has seen before, in a process that is not new to
// allocations.
ucontext_t host, coroutine;
std::size_t next_site = 0;
const BEHAVIOUR allocate_on_small_stacks("small_stacks", [](char**) {
    constexpr std::size_t page = 4096;
    char* const memory = static_cast<char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(memory, page, PROT_NONE);
    std::free(allocate_at<4000>());
    for (; next_site < site_count; ++next_site) {
        getcontext(&coroutine);
        coroutine.uc_stack.ss_sp = memory + page;
        coroutine.uc_stack.ss_size = page;
        coroutine.uc_link = &host;
        makecontext(
            &coroutine, [] { std::free(sites_from<3000>[next_site]()); }, 0);
        swapcontext(&host, &coroutine);
    }
});

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
