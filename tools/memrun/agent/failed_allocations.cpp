#include "tools/memrun/agent/failed_allocations.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>

#include "tools/memrun/agent/note.h"

namespace memrun::agent {

namespace {

const Orders* noted_for = nullptr;
std::atomic<bool> is_noted{false};

[[gnu::noinline, gnu::cold]] void note_failure(std::size_t size) {
    const int saved_errno = errno;
    if (!is_noted.exchange(true) && getpid() == noted_for->owner)
        append_note(*noted_for, "failed %zu\n", size);
    errno = saved_errno;
}

// The allocator calls its hooks for a refused malloc, too, with null.
void on_allocation(const void* block, std::size_t size) {
    if (block == nullptr) [[unlikely]]
        note_failure(size);
}

// A refused operator new throws before the hooks; it comes here. Without a handler the next attempt throws,
// as it would have.
void on_refused_new() {
    std::set_new_handler(nullptr);
    note_failure(0);
}

}  // namespace

void watch_failed_allocations(const Orders& orders) {
    using AddHook = int(void (*)(const void*, std::size_t));
    auto* const add = reinterpret_cast<AddHook*>(dlsym(RTLD_DEFAULT, "MallocHook_AddNewHook"));
    if (add == nullptr) return;
    noted_for = &orders;
    add(on_allocation);
    if (std::get_new_handler() == nullptr) std::set_new_handler(on_refused_new);
}

}  // namespace memrun::agent
