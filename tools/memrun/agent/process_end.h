// The ordinary ends of this process.
#pragma once

namespace memrun::agent {

// Called before the process is left without exit actions. Writes the reports where that is safe: not in a
// forked child, not inside the allocator or the tracker, and not twice.
void on_fast_exit();

}  // namespace memrun::agent
