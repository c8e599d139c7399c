// Allocations that the allocator refuses, for the launcher's word on why a program ended. What a failure
// means to the program does not change.
#pragma once

#include <cstddef>

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// From here on the first refused allocation goes into the note. `orders` must stay.
void watch_failed_allocations(const Orders& orders);

// Called for each refused one of `size` bytes, 0 when that is not known. Safe in an allocator hook.
[[gnu::cold]] void note_failed_allocation(std::size_t size);

}  // namespace memrun::agent
