#include "tools/memrun/agent/allocator_hooks.h"

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

}  // namespace

void attach_allocator_hooks() {
    attach_hook("MallocHook_AddNewHook", on_allocation);
    attach_hook("MallocHook_AddDeleteHook", on_free);
}

}  // namespace memrun::agent
