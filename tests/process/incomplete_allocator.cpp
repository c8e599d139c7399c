// A module of the allocator's name with six of the seven entries that the library binds: tc_malloc_size is
// missing. None is a function, so that a call ends the process.
#define SHOWN __attribute__((visibility("default")))

extern "C" {
SHOWN extern const char MallocHook_AddNewHook = 0, MallocHook_RemoveNewHook = 0, MallocHook_AddDeleteHook = 0,
                        MallocHook_RemoveDeleteHook = 0, tc_set_new_mode = 0,
                        MallocExtension_GetOwnership = 0;
}
