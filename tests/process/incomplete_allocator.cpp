// A module of the allocator's name with six of the seven entries that the library binds: tc_malloc_size is
// missing. Says when one is called.
#include <cstdio>

#define ENTRY(name)                                                           \
    extern "C" __attribute__((visibility("default"))) int name(const void*) { \
        return std::puts(#name);                                              \
    }

ENTRY(MallocHook_AddNewHook)
ENTRY(MallocHook_RemoveNewHook)
ENTRY(MallocHook_AddDeleteHook)
ENTRY(MallocHook_RemoveDeleteHook)
ENTRY(tc_set_new_mode)
ENTRY(MallocExtension_GetOwnership)
