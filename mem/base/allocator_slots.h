// The one way to the allocator: seven process-wide function pointers, each named for its entry. They hold
// harmless fall-backs from the library's load on, and the entries of tcmalloc_minimal once that is bound.
#pragma once

#include <cstddef>

using MEM_NEW_HOOK = void (*)(const void* block, std::size_t size);
using MEM_DELETE_HOOK = void (*)(const void* block);

using MEM_NEW_HOOK_SWITCH = int (*)(MEM_NEW_HOOK hook);
using MEM_DELETE_HOOK_SWITCH = int (*)(MEM_DELETE_HOOK hook);
using MEM_SET_NEW_MODE = int (*)(int mode);
using MEM_MALLOC_SIZE = std::size_t (*)(void* block);
using MEM_GET_OWNERSHIP = int (*)(const void* block);

// Attach and detach a hook that runs after each allocation, or before each free. Results are never read.
extern MEM_NEW_HOOK_SWITCH MallocHook_AddNewHook;
extern MEM_NEW_HOOK_SWITCH MallocHook_RemoveNewHook;
extern MEM_DELETE_HOOK_SWITCH MallocHook_AddDeleteHook;
extern MEM_DELETE_HOOK_SWITCH MallocHook_RemoveDeleteHook;
// Null when no allocator is bound.
extern MEM_SET_NEW_MODE tc_set_new_mode;
// Usable bytes of a block; 0 without an allocator.
extern MEM_MALLOC_SIZE tc_malloc_size;
// 1 when the allocator owns the block.
extern MEM_GET_OWNERSHIP MallocExtension_GetOwnership;

// Binds all seven to the module tcmalloc_minimal, or puts all seven back to the fall-backs when the process
// does not hold it or one entry is missing. Calls the loader.
void mem_bind_allocator_slots();
