// The resident memory of the process, taken apart: who holds what the system says that the process holds.
//
// All figures are bytes that lie in memory, unless they say otherwise. The parts add up:
//
//   resident = blocks + rounding + unknown_blocks + tracker_blocks
//            + kept_by_threads + kept_in_between + kept_free + allocator_tables + never_touched
//            + tracker_mappings + stacks + code + module_data + files + shared_memory + anonymous +
//            unexplained
#pragma once

#include <cstdint>

#include "ktl_mem/export.h"

struct MEM_RESIDENT_PARTS {
    std::int64_t resident = 0;  // what the system calls the resident set of the process (VmRSS)

    // Blocks that are in use. With call sites tracked the first is what the program asked for and the second
    // what the allocator gave beyond that, as the same call sites have it on average over all that they ever
    // allocated; without, the second is 0.
    std::int64_t blocks = 0;
    std::int64_t rounding = 0;
    std::int64_t unknown_blocks = 0;  // from before tracking began, or on threads that blocked it
    std::int64_t tracker_blocks = 0;  // the tracker's own, on the same heap

    // Freed blocks that the allocator keeps for later, and what it needs itself.
    std::int64_t kept_by_threads = 0;   // each thread's cache
    std::int64_t kept_in_between = 0;   // the lists that threads share
    std::int64_t kept_free = 0;         // whole pages; MallocExtension_ReleaseFreeMemory gives them back
    std::int64_t allocator_tables = 0;  // its own records
    std::int64_t never_touched = 0;     // 0 or below: what of all these never came into memory

    std::int64_t tracker_mappings = 0;  // the tracker's tables outside the heap
    std::int64_t stacks = 0;            // of threads
    std::int64_t code = 0;              // code and constants of the program and its libraries
    std::int64_t module_data = 0;       // their variables
    std::int64_t files = 0;             // mapped by the program
    std::int64_t shared_memory = 0;     // of several processes, or that may become so
    std::int64_t anonymous = 0;  // mapped by the program without a file: arenas, large arrays, generated code
    std::int64_t unexplained = 0;

    // Not in memory, and so no part: pages that the allocator gave back and still has addresses for.
    std::int64_t given_back = 0;
};

// Takes the resident memory apart as it is now. Reads the process's mappings: about a microsecond for each of
// them. True when `out` was filled in; false, with `out` untouched, when the system gives no figures or
// another thread is asking. Works without tracking and without the allocator, with the parts that can then be
// told. Safe from any thread; not in an allocator hook.
KTL_MEM_API bool mem_get_resident_parts(MEM_RESIDENT_PARTS& out);
