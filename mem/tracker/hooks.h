// What the allocator calls, and the switch that attaches it.
#pragma once

#include <cstddef>

// Run by the allocator after an allocation (also a failed one, with a null block) and before a free. They
// keep errno, and an allocation made inside goes to the profiler counters alone.
void mem_tbb_new_hook(const void* block, std::size_t requested);
void mem_tbb_delete_hook(const void* block);

// The same with each event inside the gate of the forks (mem/tracker/fork_gate.h).
void mem_tbb_new_hook_of_forks(const void* block, std::size_t requested);
void mem_tbb_delete_hook_of_forks(const void* block);

void mem_attach_tracker_hooks();
void mem_detach_tracker_hooks();

// Between the two every other thread waits in its next allocation, so that the calling one gets what memory
// there is. Not for ever: a thread may hold something that the calling one waits for.
void mem_hold_other_threads();
void mem_let_other_threads_go();
