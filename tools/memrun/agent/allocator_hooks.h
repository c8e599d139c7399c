// The agent's own hooks in the allocator: they see refused allocations, and are where a busy thread can end
// the process.
#pragma once

#include <dlfcn.h>

namespace memrun::agent {

// Attaches them, if the allocator is there. What they report must be watched already.
void attach_allocator_hooks();

// Attaches a hook by the allocator's entry for its kind, if the allocator is there. Calls the loader.
template <class Hook>
void attach_hook(const char* entry, Hook* hook) {
    auto* const add = reinterpret_cast<int (*)(Hook*)>(dlsym(RTLD_DEFAULT, entry));
    if (add != nullptr) add(hook);
}

}  // namespace memrun::agent
