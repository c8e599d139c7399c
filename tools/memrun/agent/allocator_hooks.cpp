#include "tools/memrun/agent/allocator_hooks.h"

#include <dlfcn.h>

#include <cstddef>

#include "tools/memrun/agent/control_page.h"
#include "tools/memrun/agent/end_signals.h"
#include "tools/memrun/agent/failed_allocations.h"

namespace memrun::agent {

namespace {

// The end comes first: it leaves nothing to wish for.
inline void look_around() {
    if (is_end_due()) [[unlikely]]
        end_in_hook();
    if (is_wished()) [[unlikely]]
        fulfil_in_hook();
}

// The allocator calls its hooks for a refused malloc, too, with null.
void on_allocation(const void* block, std::size_t size) {
    if (block == nullptr) [[unlikely]]
        note_failed_allocation(size);
    look_around();
}

void on_free(const void*) {
    look_around();
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
