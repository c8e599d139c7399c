// What the launcher's tests run: each argument shows one behaviour.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/bins/on_threads.h"
#include "tests/process/kept.h"
#include "tests/process/module.h"
#include "tests/process/threads_at_once.h"

namespace {

__attribute__((noinline)) void* hold(std::size_t size) {
    return kept(std::malloc(size));
}

void say_ready() {
    std::puts("ready");
    std::fflush(stdout);
}

// Allocates without end on the main thread and on three others.
int be_busy() {
    say_ready();
    const Meanwhile busy(3, [] { std::free(hold(100)); });
    for (;;) std::free(hold(100));
}

// Nearly all of its time the thread holds the loader's lock.
int load_without_end(const char* path) {
    say_ready();
    for (;;) {
        void* plugin = dlopen(path, RTLD_NOW);
        std::free(reinterpret_cast<decltype(&module_block)>(dlsym(plugin, "module_block"))(500));
        dlclose(plugin);
    }
}

// Any other system call than these, and those that end the process, kills it from here on.
int hold_with_few_system_calls(const std::vector<std::uint32_t>& allowed) {
    std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const std::uint32_t number : allowed) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) return 1;
    for (std::size_t size = 1000; size < 4000; ++size) hold(size);
    return 0;
}

// Threads that have used 5 MiB of their stacks and are still there at the end.
int fill_stacks() {
    constexpr int threads = 16;
    std::atomic<int> filled{0};
    for (int i = 0; i < threads; ++i)
        std::thread([&filled] {
            volatile char used[5 << 20];
            for (std::size_t at = 0; at < sizeof used; at += 512) used[at] = 1;
            ++filled;
            pause();
        }).detach();
    while (filled < threads) usleep(1000);
    std::exit(0);
}

// Nearly all is freed, but hardly a page of it whole.
int leave_fragments() {
    constexpr int blocks = 400'000;
    std::vector<void*> held;
    for (int i = 0; i < blocks; ++i) held.push_back(hold(200));
    for (int i = 0; i < blocks; ++i)
        if (i % 40 != 0) std::free(held[static_cast<std::size_t>(i)]);
    return 0;
}

// Holds blocks of random sizes on so many threads, and counts their bytes where somebody else can read them
// after a kill: one number for each thread, 64 bytes apart.
__attribute__((noinline)) void* churn_block(std::size_t size) {
    return kept(std::malloc(size));
}

void churn(std::atomic<std::int64_t>& held) {
    std::minstd_rand dice(static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(&held)));
    std::vector<void*> blocks(4096);
    for (;;) {
        void*& block = blocks[dice() % blocks.size()];
        if (block != nullptr) {
            const auto size = static_cast<std::int64_t>(malloc_usable_size(block));
            std::free(std::exchange(block, nullptr));
            held -= size;
        } else {
            block = churn_block(16 + dice() % 4000);
            held += static_cast<std::int64_t>(malloc_usable_size(block));
        }
    }
}

std::atomic<std::int64_t>* map_counters(const char* path, int count) {
    const int file = open(path, O_RDWR | O_CLOEXEC);
    return static_cast<std::atomic<std::int64_t>*>(
        mmap(nullptr, static_cast<std::size_t>(count) * 64, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
}

int churn_on_threads(int threads, const char* counters) {
    std::atomic<std::int64_t>* const held = map_counters(counters, threads);
    for (int i = 1; i < threads; ++i) std::thread([&counter = held[8 * i]] { churn(counter); }).detach();
    say_ready();
    churn(held[0]);
    return 0;
}

// 10 pages, less 3 from their middle; 4 that become 6; 5 of which 1 is mapped over by a file's; 2 reserved.
int map_memory() {
    constexpr std::size_t page = 4096;
    const auto map = [](void* at, std::size_t pages, int protection, int flags, int file) {
        return static_cast<char*>(mmap(at, pages * page, protection, MAP_PRIVATE | flags, file, 0));
    };
    constexpr int usable = PROT_READ | PROT_WRITE;
    char* const cut = map(nullptr, 10, usable, MAP_ANONYMOUS, -1);
    munmap(cut + 4 * page, 3 * page);
    mremap(map(nullptr, 4, usable, MAP_ANONYMOUS, -1), 4 * page, 6 * page, MREMAP_MAYMOVE);
    char* const under = map(nullptr, 5, usable, MAP_ANONYMOUS, -1);
    map(under, 1, PROT_READ, MAP_FIXED, open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    map(nullptr, 2, PROT_NONE, MAP_ANONYMOUS, -1);
    munmap(map(nullptr, 7, usable, MAP_ANONYMOUS, -1), 7 * page);
    std::thread([] { std::free(hold(100)); }).join();  // a stack is nobody's mapping
    return 0;
}

void wait_for_children() {
    while (wait(nullptr) > 0) {
    }
}

// The first process ends at once, and so does the one that makes the last one. That has no descriptor, and
// goes on for a while or for ever.
int become_daemon(bool forever) {
    void* const blocks[] = {hold(1024), hold(1024), hold(1024)};
    const int out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (fork() != 0) return 7;
    setsid();
    if (fork() != 0) return 0;
    dprintf(out, "%d\n", static_cast<int>(getpid()));
    close_range(0, ~0U, 0);
    usleep(200'000);
    std::free(blocks[0]);
    hold(8192);
    if (!forever) return 0;
    for (;;) std::free(hold(100));
}

int serve_with_workers(int workers, const char* path) {
    std::atomic<std::int64_t>* const counters = map_counters(path, workers);
    hold(1024);
    for (int i = 0; i < workers; ++i) {
        const pid_t child = fork();
        if (child == 0) churn(counters[8 * i]);
        std::printf("%d\n", static_cast<int>(child));
    }
    usleep(300'000);
    std::fflush(stdout);
    wait_for_children();
    return 0;
}

int fork_short_children(int children, const char* path) {
    std::atomic<std::int64_t>* const counters = map_counters(path, 2);
    for (int i = 0; i < 2; ++i) std::thread([&counter = counters[8 * i]] { churn(counter); }).detach();
    for (int i = 0; i < children; ++i)
        if (fork() == 0) {
            hold(8192);
            _exit(0);
        }
    wait_for_children();
    return 0;
}

int exec_in_child() {
    if (fork() == 0) execl("/bin/true", "true", nullptr);
    wait_for_children();
    return 0;
}

int fork_without_end() {
    say_ready();
    const Meanwhile busy(1, [] { std::free(hold(100)); });
    for (;;) {
        const pid_t child = fork();
        if (child == 0) _exit(0);
        waitpid(child, nullptr, 0);
    }
}

// Until the allocator gives null.
// Of that size, and what is left then in smaller ones.
int use_up_memory(std::size_t size, int threads) {
    on_threads_at_once(threads, [size] {
        for (std::size_t next = size; next >= 16; next /= 8)
            while (void* const block = std::malloc(next)) *static_cast<volatile char*>(block) = 1;
    });
    return write(STDOUT_FILENO, "no more\n", 8) == 8 ? 7 : 1;
}

// No thread catches what it gets for that.
void use_up_memory_and_throw(int threads) {
    on_threads_at_once(threads, [] {
        for (std::vector<char*> blocks;;) blocks.push_back(new char[1000]);
    });
}

int exit_at_once() {
    on_threads_at_once(8, [] { std::exit(9); });
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::uint32_t> numbers;  // of those that take some
    for (int i = 2; i < argc; ++i) numbers.push_back(static_cast<std::uint32_t>(std::atoi(argv[i])));
    const std::map<std::string, std::function<int()>> behaviours = {
        {"nothing", [] { return 0; }},
        {"leak", [] { return hold(1000), hold(1000), hold(1000), 7; }},
        {"busy", be_busy},
        {"wait", [] { return say_ready(), pause(); }},
        {"stacks", fill_stacks},
        {"mappings", map_memory},
        {"filtered", [&] { return hold_with_few_system_calls(numbers); }},
        {"fragments", leave_fragments},
        {"churn", [&] { return churn_on_threads(std::atoi(argv[2]), argv[3]); }},
        {"loading", [&] { return load_without_end(argv[2]); }},
        {"forking", fork_without_end},
        {"daemon", [&] { return become_daemon(argc > 2); }},
        {"workers", [&] { return serve_with_workers(std::atoi(argv[2]), argv[3]); }},
        {"short_children", [&] { return fork_short_children(std::atoi(argv[2]), argv[3]); }},
        {"exec_child", exec_in_child},
        {"use_up", [&] { return use_up_memory(std::strtoull(argv[2], nullptr, 10), std::atoi(argv[3])); }},
        {"use_up_and_throw", [&] { return use_up_memory_and_throw(std::atoi(argv[2])), 0; }},
        {"exit_at_once", exit_at_once},
    };
    return behaviours.at(argv[argc > 1 ? 1 : 0])();
}
