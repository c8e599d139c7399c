// What the launcher's tests run: each argument shows one behaviour.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/bins/on_threads.h"
#include "tests/process/kept.h"
#include "tests/process/module.h"

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

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<int()>> behaviours = {
        {"nothing", [] { return 0; }},
        {"leak", [] { return hold(1000), hold(1000), hold(1000), 7; }},
        {"busy", be_busy},
        {"wait", [] { return say_ready(), pause(); }},
        {"stacks", fill_stacks},
        {"fragments", leave_fragments},
        {"loading", [&] { return load_without_end(argv[2]); }},
    };
    return behaviours.at(argv[argc > 1 ? 1 : 0])();
}
