// The allocation log: a line of "mem_allocations.log" for each allocation and free of the process.
#pragma once

#include <cstddef>

// Closes the log when it is open: detaches its hooks, waits for lines that other threads are writing, and
// closes the file. A thread that ends the process in the middle of its own line leaves the file to the
// system.
void mem_close_allocation_log();

// In a forked child: the log belongs to the parent, and lines of the child would falsify it. Takes no lock.
void mem_forget_allocation_log();

// The hooks, as the allocator calls them: a null block, of a failed allocation, has no line.
void mem_log_alloc_hook(const void* block, std::size_t size);
void mem_log_free_hook(const void* block);
