// What happens when memory runs out: the process ends, once and in one form.
//
// The first call releases the library's small reserves, runs the host's handler or, without one, writes
// "\nOut of memory (N megabytes used)\n" to standard error, and ends the process with exit(1), so that exit
// actions run and the tracker writes its reports. N is the highest virtual size of the process in millions of
// bytes. Of several threads that run out of memory at once one does this, and the others wait for the end.
//
// The tracker itself lives with a lack of memory: what it cannot hold is not attributed. When it cannot,
// since its reserve is spent, its locks cannot be given back: the process then ends at once with exit code 1,
// without handler, exit actions and reports, and says so on standard error.
#pragma once

#include "ktl_mem/export.h"

extern "C" {
// Ends the process as described above. Never returns. Callable from any thread at any time, also inside an
// allocator hook; not from a signal handler.
[[noreturn]] KTL_MEM_API void mem_out_of_memory();
}

// Has a failed operator new of any thread, a failed call of tcmalloc_minimal (malloc too) and a failed
// allocation of the suite's thread library end in mem_out_of_memory. A null from the C library's own malloc
// stays the caller's business. Stores the handler; null brings the default message back and changes nothing
// else.
//
// The handler is called once in the life of the process, on the thread that ran out of memory. It cannot keep
// the process alive: when it returns, throws, or runs out of memory itself, the process ends all the same.
// The library's lock is held meanwhile: a handler should not call exit itself, nor wait for a thread to end.
// Safe from any thread; not in an allocator hook.
KTL_MEM_API void mem_set_out_of_memory_handler(void (*handler)());

// True once the end described above has begun, so that an exit action can distinguish it from an ordinary
// exit. Safe from anywhere, also in a signal handler and in an allocator hook.
KTL_MEM_API bool mem_is_out_of_memory();
