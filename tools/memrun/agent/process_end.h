// The ordinary ends of this process.
#pragma once

namespace memrun::agent {

// Called by a thread before it runs the exit actions.
void on_exit_call();

// Called before the process is left without exit actions. Writes the reports where that is safe: not in a
// forked child, not inside the allocator or the tracker, and not twice.
void on_fast_exit();

}  // namespace memrun::agent
