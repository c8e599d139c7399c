// What this process shares with its launcher.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// Greets the launcher, with the memory that both use from here on. Where nobody answers within a second the
// process goes on by itself, and its note says so.
void join_launcher(const Orders& orders);

// Adds to the note when the launcher stopped answering.
void note_silence(const Orders& orders);

}  // namespace memrun::agent
