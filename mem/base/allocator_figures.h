// What the allocator says of its own memory.
#pragma once

#include <cstdint>

struct MEM_ALLOCATOR_FIGURES {
    std::uint64_t in_use = 0;           // bytes of blocks that are allocated, also by the tracker
    std::uint64_t kept_by_threads = 0;  // bytes of free blocks in the caches of threads
    std::uint64_t kept_in_between = 0;  // bytes of free blocks in the lists that threads share
    std::uint64_t kept_free = 0;        // bytes of free pages
    std::uint64_t given_back = 0;       // bytes of free pages that the system has got back
    std::uint64_t tables = 0;           // bytes of its own records

    // All that it takes for its own, given back or not touched yet aside.
    std::uint64_t total() const { return in_use + kept_by_threads + kept_in_between + kept_free + tables; }
};

// Finds the allocator's entry. Calls the loader: not in an allocator hook, and with no lock held.
void mem_bind_allocator_figures();

// All zero without the allocator. Takes locks of the allocator, for some microseconds, and allocates nothing:
// safe in an allocator hook, which runs outside them.
MEM_ALLOCATOR_FIGURES mem_read_allocator_figures();
