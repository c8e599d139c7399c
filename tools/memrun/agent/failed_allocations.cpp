#include "tools/memrun/agent/failed_allocations.h"

#include <unistd.h>

#include <atomic>
#include <new>

#include "platform/kept_errno.h"
#include "tools/memrun/agent/note.h"

namespace memrun::agent {

namespace {

const Orders* noted_for = nullptr;
std::atomic<bool> is_noted{false};

// A refused operator new throws before the hooks; it comes here. Without a handler the next attempt throws,
// as it would have.
void on_refused_new() {
    std::set_new_handler(nullptr);
    note_failed_allocation(0);
}

}  // namespace

void watch_failed_allocations(const Orders& orders) {
    noted_for = &orders;
    if (std::get_new_handler() == nullptr) std::set_new_handler(on_refused_new);
}

void note_failed_allocation(std::size_t size) {
    const KEPT_ERRNO errno_is_kept;
    if (!is_noted.exchange(true) && getpid() == noted_for->owner)
        append_note(*noted_for, "failed %zu\n", size);
}

}  // namespace memrun::agent
