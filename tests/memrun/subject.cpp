// What the launcher's tests run: each argument shows one behaviour.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

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

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<int()>> behaviours = {
        {"nothing", [] { return 0; }},
        {"leak", [] { return hold(1000), hold(1000), hold(1000), 7; }},
        {"busy", be_busy},
        {"wait", [] { return say_ready(), pause(); }},
        {"loading", [&] { return load_without_end(argv[2]); }},
    };
    return behaviours.at(argv[argc > 1 ? 1 : 0])();
}
