// The inside of ktl_mem/out_of_memory.h.
#pragma once

#include <cstddef>

// What mem_set_out_of_memory_handler does, but for the stored handler, which stays. The start of a thread
// renews the modes by this: to store again what it has read would undo what another thread has set meanwhile.
void mem_renew_out_of_memory_modes();

// The handler of a failed allocation. Returns to the tracker alone: 1 to have its allocation tried again, 0
// to the thread that writes the reports, of which one then ends early.
int mem_new_handler(std::size_t size);
