// A program whose life takes the turn that its argument names. Threads allocate and free all the while.
#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ktl_mem/mem.h"
#include "tests/process/life_plugin.h"

namespace {

// Keeps the compiler from leaving an allocation out.
void* kept(void* block) {
    asm volatile("" : "+r"(block) : : "memory");
    return block;
}

// A call site of its own for each number.
template <int N>
__attribute__((noinline)) void* allocate_at() {
    return kept(std::malloc(static_cast<std::size_t>(16 + N)));
}
constexpr std::size_t site_count = 64;
template <int FIRST, int... N>
constexpr std::array<void* (*)(), site_count> sites(std::integer_sequence<int, N...>) {
    return {allocate_at<FIRST + N>...};
}
template <int FIRST>
constexpr auto sites_from = sites<FIRST>(std::make_integer_sequence<int, site_count>());

std::atomic<bool> stop{false};
std::atomic<int> allocations{0};

void allocate_all_the_while() {
    void* kept_blocks[32] = {};
    for (std::size_t i = 0; !stop; ++i) {
        std::free(kept_blocks[i % 32]);
        kept_blocks[i % 32] = sites_from<0>[i / 512 % site_count]();
        ++allocations;
    }
}

std::vector<std::thread> start_threads() {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(allocate_all_the_while);
    return threads;
}

void stop_threads(std::vector<std::thread>& threads) {
    stop = true;
    for (std::thread& thread : threads) thread.join();
}

// What a program may do with the library, all of it.
void use_library() {
    mem_enable_tracking(MEM_TRACKING_ALL);
    mem_set_tbb_memory_tracking_enabled(true);
    mem_set_timeline_label("child");
    mem_open_profile_bin("work", "tag");
    std::free(allocate_at<100>());
    std::uint64_t figures[3];
    mem_close_profile_bin("tag", &figures[0], &figures[1], &figures[2]);
    MEM_ADDRESS_TRACKER site;
    mem_get_address_tracker(nullptr, site);
    mem_tbb_tracking_flush_peak();
    mem_user_snapshot_tracking_data();
    std::ostringstream text;
    mem_dump_tbb_fileline_tracking(text);
    mem_dump_tbb_subsystem_tracking(text);
    mem_dump_tbb_module_tracking(text, text);
    mem_dump_tbb_profile_bin_tag_timeline_tracking(text, text);
    mem_reset_tracking_entries();
    mem_disable_tracking(MEM_TRACKING_ALL);
    mem_shutdown_tbb_tracking();
}

// A library that comes before all others may allocate in a fork handler of its own. The allocator's handler
// has not run then, so that there are only the blocks that the thread has at hand.
bool early_handler_allocates = false;
void allocate_in_child() {
    if (early_handler_allocates) allocate_at<104>();
}
__attribute__((section(".preinit_array"), used)) void (*const first_of_all)() = [] {
    pthread_atfork(nullptr, nullptr, allocate_in_child);
};

int fork_with_an_early_handler() {
    early_handler_allocates = true;
    void* at_hand[] = {allocate_at<104>(), allocate_at<104>()};
    for (void* block : at_hand) std::free(block);
    const std::int64_t before = mem_get_stats().current.blocks;
    const pid_t child = fork();
    if (child == 0) std::_Exit(mem_get_stats().current.blocks == before ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    std::printf("tracked in the child: %d\n", status != 0);
    return 0;
}

// A child that hangs writes its stack and ends by the signal.
void tell_where_it_hangs() {
    constexpr unsigned patience = 20;
    void* warm_up[1];
    backtrace(warm_up, 1);
    std::signal(SIGALRM, [](int number) {
        std::signal(number, SIG_DFL);
        alarm(patience);
        void* stack[64];
        backtrace_symbols_fd(stack, backtrace(stack, 64), STDERR_FILENO);
        std::raise(number);
    });
    alarm(patience);
}

// Children of a busy process use the library and end by exit; a report of theirs would have the name "child".
int fork_children() {
    auto threads = start_threads();
    int failed = 0;
    for (int i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            tell_where_it_hangs();
            mem_set_tbb_exe_string("child");
            use_library();
            stop = true;
            std::exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) std::printf("child %d ended with status %#x\n", i, static_cast<unsigned>(status));
        failed += status != 0;
    }
    stop_threads(threads);
    std::printf("failed children: %d\n", failed);
    return failed != 0;
}

int exec_again(char** argv) {
    auto threads = start_threads();
    setenv("LIFE_STAGE", "second", 1);
    char second[] = "allocate";
    char* arguments[] = {argv[0], second, nullptr};
    execv("/proc/self/exe", arguments);
    std::_Exit(3);
}

int exit_with_live_threads() {
    for (std::thread& thread : start_threads()) thread.detach();
    while (allocations < 10'000) std::this_thread::yield();
    std::exit(5);
}

// Another thread ends the process, while this one allocates too.
int exit_on_a_thread() {
    auto threads = start_threads();
    std::thread([] { std::exit(6); }).detach();
    allocate_all_the_while();
    return 0;
}

bool exit_from_message(const char*, const char*, va_list) {
    if (stop.exchange(true)) return true;
    std::exit(7);
}

// The host's callback for messages ends the process; the tracker calls it inside an event.
int exit_inside_the_tracker() {
    for (int i = 0; i < 4; ++i)
        std::thread([] {
            for (;;) std::free(allocate_at<101>());
        }).detach();
    mem_set_msg_local_vdebug_callback(exit_from_message);
    for (int i = 0; i < 1'000'000; ++i) std::free(allocate_at<102>());
    return 0;
}

int shut_down_by_itself() {
    auto threads = start_threads();
    mem_shutdown_tbb_tracking();
    mem_shutdown_tbb_tracking();
    stop_threads(threads);
    return 0;
}

int keep_errno() {
    int spoiled = 0;
    for (void* (*allocate)() : sites_from<0>) {
        errno = 1234;
        void* block = allocate();
        spoiled += errno != 1234;
        std::free(block);
        spoiled += errno != 1234;
        mem_notify_memory_mapping_added(&spoiled, 4096);
        mem_notify_memory_mapping_removed(&spoiled, 4096);
        spoiled += errno != 1234;
    }
    std::printf("spoiled %d\n", spoiled);
    return 0;
}

// A request to cancel a thread waits for a place where POSIX lets it act, and no allocation is one.
int cancel_while_allocating() {
    static std::atomic<int> survived{0};
    for (int i = 0; i < 4; ++i) {
        pthread_t thread{};
        const auto allocate = [](void* number) -> void* {
            pthread_cancel(pthread_self());
            for (std::size_t site = 0; site < site_count; site += 4)
                std::free(sites_from<2000>[site + reinterpret_cast<std::size_t>(number)]());
            ++survived;
            pthread_testcancel();
            survived = -100;
            return nullptr;
        };
        pthread_create(&thread, nullptr, allocate, reinterpret_cast<void*>(static_cast<std::size_t>(i)));
        pthread_join(thread, nullptr);
    }
    std::printf("survived %d\n", survived.load());
    return 0;
}

int fail_to_allocate() {
    const MEM_STATS before = mem_get_stats();
    volatile std::size_t too_much = std::size_t{1} << 60;
    errno = 0;
    const bool null = std::malloc(too_much) == nullptr && std::calloc(too_much, 1) == nullptr;
    const MEM_STATS after = mem_get_stats();
    std::printf("null %d errno %d blocks %lld\n", null, errno == ENOMEM,
                static_cast<long long>(after.current.blocks - before.current.blocks));
    return 0;
}

// The plugin's constructor holds the loader's lock and waits for this program's threads to have allocated,
// from places that the tracker has never seen.
std::atomic<std::size_t> wanted{0};
std::array<std::atomic<std::size_t>, 2> allocated{};

void wait_for_allocations() {
    const std::size_t round = ++wanted;
    while (allocated[0] != round || allocated[1] != round) std::this_thread::yield();
}

template <int SELF>
void allocate_when_wanted() {
    while (!stop) {
        const std::size_t round = wanted;
        if (allocated[SELF] != round) std::free(sites_from<1000 + 100 * SELF>[round % site_count]());
        allocated[SELF] = round;
        std::this_thread::yield();
    }
}

int load_and_unload(const char* plugin) {
    auto threads = start_threads();
    threads.emplace_back(allocate_when_wanted<0>);
    threads.emplace_back(allocate_when_wanted<1>);
    plugin_constructor_action = wait_for_allocations;
    for (int i = 0; i < 20; ++i) {
        void* handle = dlopen(plugin, RTLD_NOW);
        if (handle == nullptr) return 2;
        std::free(reinterpret_cast<void* (*)()>(dlsym(handle, "life_plugin_block"))());
        dlclose(handle);
    }
    stop_threads(threads);
    return 0;
}

}  // namespace

void (*plugin_constructor_action)() = nullptr;

int main(int argc, char** argv) {
    const std::string turn = argc > 1 ? argv[1] : "";
    if (turn == "allocate") return std::free(allocate_at<103>()), 0;
    if (turn == "fork") return fork_children();
    if (turn == "early fork handler") return fork_with_an_early_handler();
    if (turn == "exec") return exec_again(argv);
    if (turn == "exit") return exit_with_live_threads();
    if (turn == "exit on a thread") return exit_on_a_thread();
    if (turn == "exit inside") return exit_inside_the_tracker();
    if (turn == "shut down") return shut_down_by_itself();
    if (turn == "errno") return keep_errno();
    if (turn == "cancel") return cancel_while_allocating();
    if (turn == "null") return fail_to_allocate();
    if (turn == "loader") return load_and_unload(argv[2]);
    return 64;
}
