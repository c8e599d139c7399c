// A program of the kind that the debugging aids are for. Its argument names what it does; what it finds goes
// to standard output. Faults are made on purpose here.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ktl_mem/mem.h"

namespace {

using BYTES = volatile unsigned char*;

// The one value of a range of bytes, or "mixed".
std::string value_of(BYTES bytes, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i)
        if (bytes[i] != bytes[begin]) return "mixed";
    char text[8];
    std::snprintf(text, sizeof(text), "%02x", static_cast<unsigned>(bytes[begin]));
    return text;
}

// A block that the compiler knows nothing of.
BYTES hidden(void* block) {
    asm("" : "+r"(block));
    return static_cast<BYTES>(block);
}

BYTES allocate(std::size_t size, int content) {
    return hidden(std::memset(std::malloc(size), content, size));
}

void* plain(BYTES block) {
    return const_cast<unsigned char*>(block);
}

// 100 bytes lie in a block of 112. It is given out again at once, so what stood behind byte 99 is a guard.
void use_uninitialised() {
    BYTES first = allocate(112, 0x77);
    std::free(plain(first));
    BYTES bytes = hidden(std::malloc(100));
    std::printf("same %d new %s guard %s\n", bytes == first, value_of(bytes, 0, 100).c_str(),
                value_of(bytes, 100, 112).c_str());
}

// The allocator keeps its list of free blocks in their first words.
void use_freed() {
    BYTES before = allocate(112, 0x11);
    BYTES bytes = allocate(100, 0x22);
    BYTES after = allocate(112, 0x33);
    std::free(plain(bytes));
    bytes = hidden(plain(bytes));
    std::printf("freed %s neighbours %s %s distance %d\n", value_of(bytes, 16, 112).c_str(),
                value_of(before, 0, 112).c_str(), value_of(after, 0, 112).c_str(),
                static_cast<int>(after - bytes));
}

void use_calloc_and_realloc() {
    BYTES zeroed = hidden(std::calloc(25, 4));
    BYTES bytes = allocate(100, 0x11);
    BYTES moved = hidden(std::realloc(plain(bytes), 5000));
    std::printf("calloc %s moved %d copied %s", value_of(zeroed, 0, 100).c_str(), moved != bytes,
                value_of(moved, 0, 100).c_str());
    bytes = allocate(100, 0x22);
    BYTES same = hidden(std::realloc(plain(bytes), 104));
    std::printf(" in place %d content %s\n", same == bytes, value_of(same, 0, 100).c_str());
}

// Blocks of threads keep what the threads wrote, whatever is switched meanwhile.
void switch_under_threads() {
    std::atomic<bool> stop{false};
    std::atomic<int> spoiled{0};
    std::vector<std::thread> threads;
    for (int i = 1; i <= 4; ++i)
        threads.emplace_back([&, i] {
            for (std::size_t size = 1; !stop; size = size * 7 % 5003) {
                BYTES bytes = allocate(size, i);
                if (value_of(bytes, 0, size) != "0" + std::to_string(i)) ++spoiled;
                std::free(plain(bytes));
            }
        });
    for (int i = 0; i < 3000; ++i) {
        mem_set_alloc_pattern(i);
        mem_set_free_pattern(i);
        mem_set_print_allocations_callback_enabled(true);
        mem_disable_alloc_patterns();
        mem_set_print_allocations_callback_enabled(false);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    std::printf("spoiled %d\n", spoiled.load());
}

void log_four_threads() {
    mem_enable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
    mem_set_print_allocations_callback_enabled(true);
    const std::int64_t before = mem_get_stats().current.blocks;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            std::vector<void*> blocks(64, nullptr);
            for (std::size_t n = 0; n < 20'000; ++n) {
                void*& block = blocks[n * 31 % 64];
                std::free(std::exchange(block, std::malloc(n % 900)));
            }
        });
    for (std::thread& thread : threads) thread.join();
    const pid_t child = fork();
    if (child == 0) {
        std::free(plain(hidden(std::malloc(54321))));
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    const std::int64_t after = mem_get_stats().current.blocks;
    mem_set_print_allocations_callback_enabled(false);
    std::printf("blocks %lld\n", static_cast<long long>(after - before));
}

void register_modules() {
    for (const char* module : {"solver", "mesh", "solver"}) mem_register_dll_for_pgo(module, "night run");
    mem_set_ipc_mode(MEM_IPC_MODE_JSON);
    // Too late for the listing, either way.
    setenv("debug_msg", std::getenv("debug_msg") ? "off" : "on", 1);
}

// With chunks off every request is a plain allocation, which stays until it is deleted.
void use_arena_without_chunks() {
    MEM_UTILS_CHUNK_ALLOC arena;
    BYTES bytes = hidden(arena.chunk_malloc(100, 0));
    arena.chunk_free_memory();
    std::printf("chunks %d bytes %s", arena.chunk_allocation_is_enabled(), value_of(bytes, 0, 100).c_str());
    arena.chunk_delete_when_chunking_disabled(plain(bytes));
    std::printf(" deleted %s\n", value_of(bytes, 16, 100).c_str());
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "uninitialised") use_uninitialised();
    if (what == "freed") use_freed();
    if (what == "calloc") use_calloc_and_realloc();
    if (what == "switch") switch_under_threads();
    if (what == "log") log_four_threads();
    if (what == "pgo") register_modules();
    if (what == "arena") use_arena_without_chunks();
}
