#include "tools/memrun/agent/allocator_hooks.h"

#include <dlfcn.h>

#include <cstddef>

#include "tools/memrun/agent/end_signals.h"
#include "tools/memrun/agent/failed_allocations.h"

namespace memrun::agent {

namespace {

// The allocator calls its hooks for a refused malloc, too, with null.
void on_allocation(const void* block, std::size_t size) {
    if (block == nullptr) [[unlikely]]
        note_failed_allocation(size);
    if (is_end_due()) [[unlikely]]
        end_in_hook();
}

void on_free(const void*) {
    if (is_end_due()) [[unlikely]]
        end_in_hook();
}

template <class Hook>
void attach(const char* entry, Hook* hook) {
    auto* const add = reinterpret_cast<int (*)(Hook*)>(dlsym(RTLD_DEFAULT, entry));
    if (add != nullptr) add(hook);
}

}  // namespace

void attach_allocator_hooks() {
    attach("MallocHook_AddNewHook", on_allocation);
    attach("MallocHook_AddDeleteHook", on_free);
}

}  // namespace memrun::agent
