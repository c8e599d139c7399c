// Two blocks of memory that are held back, so that there is some when memory has run out: one of each thread
// that the suite's thread library started or that loaded the library, and one of the process.
#pragma once

#include <atomic>

// Set when the end for want of memory begins, and never cleared.
extern std::atomic<bool> mem_in_out_of_memory;

// Gives the calling thread and the process a reserve, where there is none; does nothing any more once memory
// has run out. No memory for a reserve means mem_out_of_memory.
void mem_allocate_reserve_buffers();

// Frees the reserve of the calling thread and the one of the process, where there are any.
void mem_free_reserve_buffers();
