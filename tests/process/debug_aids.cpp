// What the debugging aids are for: uses of uninitialised and freed memory, on purpose. What is found there
// goes to standard output.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <iostream>

#include "ktl_mem/mem.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"
#include "tests/process/kept.h"

namespace {

using BYTES = unsigned char*;

// The one value of a range of bytes, or "mixed".
std::string value_of(BYTES bytes, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i)
        if (bytes[i] != bytes[begin]) return "mixed";
    char text[8];
    std::snprintf(text, sizeof text, "%02x", unsigned{bytes[begin]});
    return text;
}

BYTES allocate(std::size_t size, int content) {
    return kept(static_cast<BYTES>(std::memset(std::malloc(size), content, size)));
}

// Frees a block that the compiler goes on to know nothing of.
BYTES released(BYTES block) {
    std::free(kept(block));
    return kept(block);
}

// 100 bytes lie in a block of 112. It is given out again at once, so what stood behind byte 99 is a guard.
const BEHAVIOUR use_uninitialised("uninitialised", [](char**) {
    BYTES first = released(allocate(112, 0x77));
    BYTES bytes = kept(static_cast<BYTES>(std::malloc(100)));
    std::cout << "same " << (bytes == first) << " new " << value_of(bytes, 0, 100) << " guard "
              << value_of(bytes, 100, 112) << '\n';
});

// The allocator keeps its list of free blocks in their first words.
const BEHAVIOUR use_freed("freed", [](char**) {
    BYTES before = allocate(112, 0x11), bytes = allocate(100, 0x22), after = allocate(112, 0x33);
    std::cout << "freed " << value_of(released(bytes), 16, 112) << " neighbours " << value_of(before, 0, 112)
              << ' ' << value_of(after, 0, 112) << " distance " << after - bytes << '\n';
});

const BEHAVIOUR use_calloc_and_realloc("reallocated", [](char**) {
    BYTES zeroed = kept(static_cast<BYTES>(std::calloc(25, 4)));
    BYTES bytes = allocate(100, 0x11), stays = allocate(100, 0x22);
    BYTES moved = static_cast<BYTES>(std::realloc(kept(bytes), 5000));
    BYTES same = static_cast<BYTES>(std::realloc(kept(stays), 104));
    std::cout << "calloc " << value_of(zeroed, 0, 100) << " moved " << (moved != bytes) << " copied "
              << value_of(moved, 0, 100) << " in place " << (same == stays) << " content "
              << value_of(same, 0, 100) << '\n';
});

// Blocks of threads keep what the threads wrote, whatever is switched meanwhile.
const BEHAVIOUR switch_under_threads("switch", [](char**) {
    std::atomic<int> spoiled{0};
    {
        const Meanwhile threads(4, [&spoiled] {
            thread_local std::size_t size = 1;
            size = size * 7 % 5003;
            BYTES bytes = allocate(size, static_cast<int>(size % 100));
            if (value_of(bytes, 0, size) == "mixed" || bytes[0] != size % 100) ++spoiled;
            released(bytes);
        });
        for (int i = 0; i < 3000; ++i) {
            mem_set_alloc_pattern(i);
            mem_set_free_pattern(i);
            mem_set_print_allocations_callback_enabled(true);
            mem_disable_alloc_patterns();
            mem_set_print_allocations_callback_enabled(false);
        }
    }
    std::cout << "spoiled " << spoiled << '\n';
});

const BEHAVIOUR log_four_threads("log", [](char**) {
    mem_enable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
    mem_set_print_allocations_callback_enabled(true);
    const std::int64_t before = mem_get_stats().current.blocks;
    on_threads(4, [](int) {
        std::array<void*, 64> blocks{};
        for (std::size_t n = 0; n < 20'000; ++n) {
            void*& block = blocks[n * 31 % 64];
            std::free(std::exchange(block, std::malloc(n % 900)));
        }
    });
    const pid_t child = fork();
    if (child == 0) std::free(kept(std::malloc(54321))), _exit(0);
    waitpid(child, nullptr, 0);
    const std::int64_t after = mem_get_stats().current.blocks;
    mem_set_print_allocations_callback_enabled(false);
    std::cout << "blocks " << after - before << '\n';
});

const BEHAVIOUR register_modules("pgo", [](char**) {
    for (const char* module : {"solver", "mesh", "solver"}) mem_register_dll_for_pgo(module, "night run");
    mem_set_ipc_mode(MEM_IPC_MODE_JSON);
    // Too late for the listing, either way.
    setenv("debug_msg", std::getenv("debug_msg") ? "off" : "on", 1);
});

// With chunks off every request is a plain allocation, which stays until it is deleted.
const BEHAVIOUR use_arena_without_chunks("arena", [](char**) {
    MEM_UTILS_CHUNK_ALLOC arena;
    auto* const bytes = static_cast<BYTES>(arena.chunk_malloc(100, 0));
    arena.chunk_free_memory();
    std::cout << "chunks " << arena.chunk_allocation_is_enabled() << " bytes " << value_of(bytes, 0, 100);
    arena.chunk_delete_when_chunking_disabled(bytes);
    std::cout << " deleted " << value_of(kept(bytes), 16, 100) << '\n';
});

}  // namespace
