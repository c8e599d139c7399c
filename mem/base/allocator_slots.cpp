#include "mem/base/allocator_slots.h"

#include "platform/modules.h"

namespace {

int ignore_new_hook(MEM_NEW_HOOK) {
    return 0;
}
int ignore_delete_hook(MEM_DELETE_HOOK) {
    return 0;
}
std::size_t no_size(void*) {
    return 0;
}
int no_ownership(const void*) {
    return 0;
}

struct NAMED_SLOT {
    const char* entry;
    void** slot;
};

template <class FUNCTION>
void** as_slot(FUNCTION& slot) {
    return reinterpret_cast<void**>(&slot);
}

void use_fall_backs() {
    MallocHook_AddNewHook = ignore_new_hook;
    MallocHook_RemoveNewHook = ignore_new_hook;
    MallocHook_AddDeleteHook = ignore_delete_hook;
    MallocHook_RemoveDeleteHook = ignore_delete_hook;
    tc_set_new_mode = nullptr;
    tc_malloc_size = no_size;
    MallocExtension_GetOwnership = no_ownership;
}

bool find_all_entries(HMODULE allocator) {
    const NAMED_SLOT slots[] = {{"MallocHook_AddNewHook", as_slot(MallocHook_AddNewHook)},
                                {"MallocHook_RemoveNewHook", as_slot(MallocHook_RemoveNewHook)},
                                {"MallocHook_AddDeleteHook", as_slot(MallocHook_AddDeleteHook)},
                                {"MallocHook_RemoveDeleteHook", as_slot(MallocHook_RemoveDeleteHook)},
                                {"tc_set_new_mode", as_slot(tc_set_new_mode)},
                                {"tc_malloc_size", as_slot(tc_malloc_size)},
                                {"MallocExtension_GetOwnership", as_slot(MallocExtension_GetOwnership)}};
    bool all_found = true;
    for (const NAMED_SLOT& named : slots) {
        *named.slot = GetProcAddress(allocator, named.entry);
        all_found = all_found && *named.slot != nullptr;
    }
    return all_found;
}

// The allocator builds its extension object at the first call of this kind; that happens here and not in
// the first hook.
void warm_up_ownership() {
    int* block = new int(0);
    MallocExtension_GetOwnership(block);
    delete block;
}

}  // namespace

constinit MEM_NEW_HOOK_SWITCH MallocHook_AddNewHook = ignore_new_hook;
constinit MEM_NEW_HOOK_SWITCH MallocHook_RemoveNewHook = ignore_new_hook;
constinit MEM_DELETE_HOOK_SWITCH MallocHook_AddDeleteHook = ignore_delete_hook;
constinit MEM_DELETE_HOOK_SWITCH MallocHook_RemoveDeleteHook = ignore_delete_hook;
constinit MEM_SET_NEW_MODE tc_set_new_mode = nullptr;
constinit MEM_MALLOC_SIZE tc_malloc_size = no_size;
constinit MEM_GET_OWNERSHIP MallocExtension_GetOwnership = no_ownership;

void mem_bind_allocator_slots() {
    MallocHook_AddNewHook = nullptr;
    MallocHook_RemoveNewHook = nullptr;
    MallocHook_AddDeleteHook = nullptr;
    MallocHook_RemoveDeleteHook = nullptr;
    const HMODULE allocator = GetModuleHandleA("tcmalloc_minimal");
    if (allocator != nullptr && find_all_entries(allocator)) {
        warm_up_ownership();
    } else {
        use_fall_backs();
    }
}
