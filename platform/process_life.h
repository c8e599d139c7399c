// What a library has to know of the life of its process.
#pragma once

#include <cstddef>

// Runs action in every forked child, before the child goes on, on its one thread. No other thread's locks may
// be waited for in it. Actions run in the order of their registration.
void run_in_forked_child(void (*action)());

// Runs before in the forking thread ahead of every fork, and behind the fork the other two in it, in parent
// and child.
void run_around_fork(void (*before)(), void (*in_parent)(), void (*in_child)());

// Has whole pages of static memory that starts as zeros read as zeros again in every forked child, from its
// first instruction on. A system that cannot do so leaves them as they are.
void clear_in_forked_child(void* pages, std::size_t size);

// True when the calling thread is the only one of the process.
bool is_only_thread();

// Waits until another thread ends the process.
[[noreturn]] void wait_for_process_end();
