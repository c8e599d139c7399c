// Ends by a fault: fault EVENT CALLBACK THREADS
// Exception handling is enabled when the environment says so.
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <map>
#include <stdexcept>

#include "tests/process/behaviour.h"
#include "tests/process/threads_at_once.h"

// What the library asks its main program (docs/ending.md).
struct EXCEPTION_POINTERS;
extern "C" {
__attribute__((visibility("default"))) bool main_eh_enabled();
extern std::atomic<void (*)()> main_terminator_callback;
extern std::atomic<long (*)(EXCEPTION_POINTERS*)> main_seh_callback;
bool main_eh_enabled() {
    return std::getenv("HANDLE_EXCEPTIONS") != nullptr;
}
}

namespace {

char* volatile nowhere = nullptr;
void* volatile page = nullptr;  // the handler of the fault reads it
volatile int zero = 0;
volatile int depth_bound = 1 << 30;

void touch_memory() {
    *nowhere = 1;
}

int overflow(int depth) {  // NOLINT(misc-no-recursion): that is the point
    volatile char block[4096];
    block[0] = static_cast<char>(depth);
    return depth < depth_bound ? overflow(depth + 1) + block[0] : 0;
}

void throw_lost() {
    throw std::runtime_error("lost");
}

const std::map<std::string, void (*)()> events = {
    {"none", [] {}},
    {"read", touch_memory},
    {"handled",  // by the host itself
     [] {
         std::signal(SIGSEGV, [](int) { _exit(9); });
         touch_memory();
     }},
    {"overflow", [] { overflow(0); }},
    {"bus",  // beyond the end of a file
     [] {
         void* const empty = mmap(nullptr, 4096, PROT_WRITE, MAP_SHARED, fileno(std::tmpfile()), 0);
         *static_cast<volatile char*>(empty) = 1;
     }},
    {"divide", [] { zero = 7 / zero; }},  // NOLINT
    {"illegal", [] { __asm__ volatile("ud2"); }},
    {"sent", [] { raise(SIGSEGV); }},
    {"page",
     [] {
         page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
         *static_cast<volatile char*>(page) = 1;
         std::puts("went on");
     }},
    {"throw", throw_lost},
    {"noexcept", []() noexcept { throw_lost(); }},
    {"terminate", std::terminate},
    {"abort", std::abort}};

const std::map<std::string, void (*)()> callbacks = {
    {"none", nullptr},
    {"return", [] { std::fputs("callback\n", stderr); }},
    {"fault", touch_memory},
    {"throw", [] { throw 1; }},
    {"repair", [] { mprotect(page, 4096, PROT_READ | PROT_WRITE); }}};
void (*callback)() = nullptr;

const BEHAVIOUR fault("fault", [](char** arguments) {
    callback = callbacks.at(arguments[1]);
    if (callback != nullptr) {
        main_seh_callback = [](EXCEPTION_POINTERS*) { return callback(), 0L; };
        main_terminator_callback = [] { callback(); };
    }
    std::atexit([] { std::fputs("exit action\n", stderr); });
    std::fputs("kept in the buffer\n", stdout);
    on_threads_at_once(std::atoi(arguments[2]), events.at(arguments[0]));
});

}  // namespace
