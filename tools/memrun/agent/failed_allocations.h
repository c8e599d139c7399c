// Allocations that the allocator refuses, for the launcher's word on why a program ended.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// From here on the first refused allocation goes into the note. `orders` must stay. What a failure means to
// the program does not change.
void watch_failed_allocations(const Orders& orders);

}  // namespace memrun::agent
