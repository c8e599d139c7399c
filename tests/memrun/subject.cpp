// What the launcher's tests run: each argument shows one behaviour.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

// volatile: a block that nobody looks at would be left out by the compiler.
__attribute__((noinline)) char* hold(std::size_t size) {
    char* volatile block = static_cast<char*>(std::malloc(size));  // the line that the tests look for
    return block;
}

void say(const char* text) {
    std::puts(text);
    std::fflush(stdout);
}

__attribute__((noinline)) char* hold_cleared(std::size_t size) {
    char* volatile block = static_cast<char*>(std::calloc(1, size));
    return block;
}

__attribute__((noinline)) char* resize(char* old, std::size_t size) {
    char* volatile block = static_cast<char*>(std::realloc(old, size));
    return block;
}

void say_byte(const char* what, const char* begin, std::size_t size) {
    const bool is_everywhere = std::all_of(begin, begin + size, [&](char byte) { return byte == *begin; });
    std::printf("%s %02x%s ", what, static_cast<unsigned char>(*begin), is_everywhere ? "" : " and others");
}

// What the fill patterns are there to show, and what they must not change.
int show_fill() {
    char* const block = hold(64);
    say_byte("new", block, 64);
    const volatile std::uintptr_t address = reinterpret_cast<std::uintptr_t>(block);
    std::free(block);
    std::printf("freed %02x ", reinterpret_cast<const unsigned char*>(address)[40]);
    say_byte("cleared", hold_cleared(5000), 5000);
    char* resized = hold(1000);
    std::memset(resized, 0x2a, 1000);
    resized = resize(resized, 900);  // the allocator would leave it where it is
    say_byte("kept", resized, 900);
    resized = resize(resized, 5000);
    say_byte("kept", resized, 900);
    say_byte("grown", resized + 1024, 5000 - 1024);
    return 0;
}

// Allocates without end on the main thread and on three others.
int be_busy() {
    const auto work = [] {
        for (;;) std::free(hold(100));
    };
    for (int i = 0; i < 3; ++i) std::thread(work).detach();
    say("ready");
    work();
    return 0;
}

int fault() {
    volatile int* volatile nowhere = nullptr;
    return *nowhere;
}

void use_plugin(const char* path) {
    void* plugin = dlopen(path, RTLD_NOW);
    reinterpret_cast<void (*)()>(dlsym(plugin, "work"))();
    dlclose(plugin);
}

// Nearly all of its time the thread holds the loader's lock.
int load_without_end(const char* path) {
    say("ready");
    for (;;) use_plugin(path);
}

// Loads and unloads a plugin that allocates, while four threads allocate.
int use_plugins(const char* path) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 20000; ++n) std::free(hold(100));
        });
    for (int n = 0; n < 100; ++n) use_plugin(path);
    for (std::thread& thread : threads) thread.join();
    say("done");
    return 0;
}

int ask_too_much() {
    const std::vector<char> too_much(std::size_t{1} << 46);
    return too_much.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<int()>> behaviours = {
        {"leak", [] { return hold(1000), hold(1000), hold(1000), 7; }},
        {"fill", show_fill},
        {"busy", be_busy},
        {"wait", [] { return say("ready"), sleep(60), say("slept"), 0; }},
        {"too-much", ask_too_much},
        {"fault", fault},
        {"fast", [] { return hold(1000), _exit(5), 5; }},
        {"loading", [&] { return load_without_end(argv[2]); }},
        {"plugins", [&] { return use_plugins(argv[2]); }},
    };
    return behaviours.at(argv[argc > 1 ? 1 : 0])();
}
