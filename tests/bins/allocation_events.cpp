#include "allocation_events.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "mem/base/thread_state.h"
#include "mem/bins/profile_bins.h"

thread_local bool allocations_are_events = false;
thread_local int allocations = 0;

void* operator new(std::size_t size) {
    if (!mem_thread_state.tracking_blocked) ++allocations;
    if (std::exchange(allocations_are_events, false)) {
        mem_get_profile_bins();
        allocations_are_events = true;
    }
    if (void* made = std::malloc(size)) return made;
    throw std::bad_alloc();
}
void operator delete(void* made) noexcept {
    std::free(made);
}
void operator delete(void* made, std::size_t) noexcept {
    std::free(made);
}
