// Runs out of memory: run_out WAY HANDLER THREADS [BYTES], cope THREADS BYTES, or fail_at ALLOCATION
// handled|caught
#include <dlfcn.h>

#include <cstdio>
#include <map>

#include "ktl_mem/out_of_memory.h"
#include "tests/process/behaviour.h"
#include "tests/process/threads_at_once.h"
#include "tests/tracker/all_calls.h"

namespace {

std::size_t block_bytes = 1 << 20;

void write(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

void use_up_new() {
    for (std::vector<char*> blocks;;) blocks.push_back(new char[block_bytes]);
}

// A null ends the loop: with the C library's own malloc that is the caller's business.
void use_up_malloc() {
    while (void* const block = std::malloc(block_bytes)) static_cast<volatile char*>(block)[0] = 1;  // NOLINT
}

// A little of everything that the tracker follows.
void small_run() {
    std::thread([] { delete[] new int[100]; }).join();
    const std::vector<std::string> texts(20, std::string(40, 'x'));
    pass_a_phase();
    flush_and_sample();
    dump_everything();
    reset();
}

const std::map<std::string, void (*)()> ways = {
    {"new", use_up_new}, {"malloc", use_up_malloc}, {"call", mem_out_of_memory}};

const std::map<std::string, void (*)()> handlers = {
    {"none", nullptr},
    {"returns", [] { write("handler\n"); }},
    {"throws", [] { write("handler\n"), throw 1; }},
    {"again", [] { write("handler\n"), mem_out_of_memory(); }},
    {"allocates", [] { write("handler\n"), use_up_new(); }}};

const BEHAVIOUR run_out("run_out", [](char** arguments) {
    static char buffer[256];
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    mem_set_out_of_memory_handler(handlers.at("returns"));
    mem_set_out_of_memory_handler(handlers.at(arguments[1]));
    if (arguments[3] != nullptr) block_bytes = std::strtoull(arguments[3], nullptr, 10);
    std::atexit([] { write("exit action\n"); });
    on_threads_at_once(std::atoi(arguments[2]), ways.at(arguments[0]));
    write("end of main\n");
});

// Lives with null, as a program that knows nothing of the library.
const BEHAVIOUR cope("cope", [](char** arguments) {
    block_bytes = std::strtoull(arguments[1], nullptr, 10);
    on_threads_at_once(std::atoi(arguments[0]), use_up_malloc);
    write("no more\n");
    std::exit(7);
});

// With an allocator that fails at a chosen allocation, or never; says how many there were.
const BEHAVIOUR fail_at("fail_at", [](char** arguments) {
    auto* const left = static_cast<std::atomic<long>*>(dlsym(RTLD_DEFAULT, "allocations_left"));
    const long number = std::atol(arguments[0]);
    const bool handled = arguments[1] == std::string("handled");
    if (handled) mem_set_out_of_memory_handler(nullptr);
    small_run();
    *left = number;
    try {
        small_run();
    } catch (const std::bad_alloc&) {
        if (handled) throw;
    }
    std::printf("%ld\n", number - *left);
});

}  // namespace
