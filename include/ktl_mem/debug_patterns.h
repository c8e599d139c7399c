// Debugging aids on the allocator's hooks: fill patterns that show uses of uninitialised and of freed memory,
// and a log of every allocation and free. docs/debugging_aids.md says what they find and what they can
// break.
//
// They work while the process holds tcmalloc_minimal, with or without tracking; without it all calls do
// nothing. Other threads may allocate during these calls, but only one thread may make them at a time. Not
// to be called in an allocator hook. The configuration sets all of this at start.
#pragma once

#include "ktl_mem/export.h"

// Fills each new block, as many bytes as were asked for, with the low 8 bits of value. Every call attaches
// the hook once more, and one mem_disable_alloc_patterns detaches it once.
KTL_MEM_API void mem_set_alloc_pattern(int value);

// Fills each block that is about to be freed, all its usable bytes; else as mem_set_alloc_pattern.
KTL_MEM_API void mem_set_free_pattern(int value);

// Ends both patterns. Nothing happens when none is set.
KTL_MEM_API void mem_disable_alloc_patterns();

// True: writes a line for each allocation and free to "mem_allocations.log" in the current directory, which
// is emptied when it is first opened. Every call with true attaches the hooks once more. False: stops; a
// later true goes on in the same file. When the file can't be created, one debug line says so and the log
// stays off.
KTL_MEM_API void mem_set_print_allocations_callback_enabled(bool enable);
