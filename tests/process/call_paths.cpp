// Stacks that a walk which keeps frames may stumble over. Each function that ends in _place allocates blocks
// of a size of its own.
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/process/behaviour.h"
#include "tests/process/kept.h"
#include "tests/process/module.h"

namespace {

#define PLACE __attribute__((noinline)) void

// The statement keeps the caller's frame.
PLACE blocks(int count, std::size_t size) {
    for (int i = 0; i < count; ++i) kept(std::malloc(size));
    asm volatile("");
}

PLACE deep_place(int levels) {
    if (levels % 1000 == 0) blocks(1, 64);
    if (levels > 0) deep_place(levels - 1);
    asm volatile("");
}

ucontext_t host, coroutine;
PLACE coroutine_place() {
    for (int i = 0; i < 10; ++i) {
        blocks(1, 128);
        swapcontext(&coroutine, &host);
    }
}
PLACE between_place() {
    blocks(1, 128);
    swapcontext(&host, &coroutine);
    asm volatile("");
}
void run_coroutine() {
    getcontext(&coroutine);
    coroutine.uc_stack = {std::malloc(65536), 0, 65536};
    coroutine.uc_link = &host;
    makecontext(&coroutine, coroutine_place, 0);
    for (int i = 0; i < 10; ++i) between_place();
}

PLACE handler_place(int) {
    blocks(1, 256);
}
PLACE interrupted_place(bool other_stack) {
    struct sigaction action = {};
    action.sa_handler = handler_place;
    action.sa_flags = other_stack ? SA_ONSTACK : 0;
    sigaction(SIGUSR1, &action, nullptr);
    for (int i = 0; i < 5; ++i) {
        raise(SIGUSR1);
        blocks(1, 256);
    }
}
void run_signals() {
    constexpr std::size_t size = 65536;
    const stack_t other{std::malloc(size), 0, size};
    sigaltstack(&other, nullptr);
    interrupted_place(false);
    interrupted_place(true);
}

std::jmp_buf back;
PLACE leaving_place(int levels, bool by_jump) {
    if (levels > 0) {
        leaving_place(levels - 1, by_jump);
    } else {
        blocks(1, 512);
        if (by_jump) std::longjmp(back, 1);
        throw 0;
    }
    asm volatile("");
}
PLACE staying_place() {
    static int turn;
    for (turn = 0; turn < 10; ++turn) {
        try {
            if (setjmp(back) == 0) leaving_place(20 + turn, turn % 2 == 0);
        } catch (int) {
        }
        blocks(1, 512);
    }
}

// Both modules lie at the same place, one after the other.
PLACE plugin_place(const std::filesystem::path& plugin) {
    void* handle = dlopen(plugin.c_str(), RTLD_NOW);
    const auto allocate = reinterpret_cast<decltype(&module_block)>(dlsym(handle, "module_block"));
    for (int i = 0; i < 3; ++i) kept(allocate(1024));
    dlclose(handle);
}
void run_plugins() {
    namespace fs = std::filesystem;
    const fs::path module = fs::read_symlink("/proc/self/exe").parent_path() / "module.so";
    for (const char* name : {"./one.so", "./two.so", "./one.so"}) {
        if (!fs::exists(name)) fs::copy_file(module, name);
        plugin_place(name);
    }
}

PLACE thread_place() {
    blocks(1, 2048);
}
PLACE forked_place() {
    blocks(100, 4096);
}

void make_all_paths(char**) {
    std::thread([] { deep_place(100'000); }).join();
    run_coroutine();
    run_signals();
    staying_place();
    run_plugins();
    for (int i = 0; i < 200; ++i) std::thread(thread_place).join();
    if (fork() == 0) {
        forked_place();
        _exit(0);
    }
    wait(nullptr);
}
const BEHAVIOUR paths{"paths", make_all_paths};

// More paths than there is address space for, through code that is known by then.
template <int NUMBER>
PLACE branch_place(int levels, unsigned way) {
    if (levels == 0) {
        std::free(kept(std::malloc(32)));
    } else if (way % 2 == 0) {
        branch_place<0>(levels - 1, way / 2);
    } else {
        branch_place<1>(levels - 1, way / 2);
    }
    asm volatile("" ::"i"(NUMBER));
}
void make_scarce_paths(char**) {
    for (const unsigned way : {0U, ~0U, 0x5555U, 0x3333U, 0x6666U}) branch_place<0>(14, way);
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit scarce{static_cast<rlim_t>(pages) * 4096, before.rlim_max};
    setrlimit(RLIMIT_AS, &scarce);
    for (unsigned way = 0; way < 1U << 14; ++way) branch_place<0>(14, way);
    setrlimit(RLIMIT_AS, &before);
}
const BEHAVIOUR scarce_paths{"scarce_paths", make_scarce_paths};

// On the main thread, whose stack the test makes large enough.
const BEHAVIOUR deep_paths{"deep_paths", [](char**) { deep_place(1'000'000); }};

}  // namespace
