// The agent's own hooks in the allocator: they see refused allocations, and are where a busy thread can end
// the process.
#pragma once

namespace memrun::agent {

// Attaches them, if the allocator is there. What they tell must be watched already.
void attach_allocator_hooks();

}  // namespace memrun::agent
