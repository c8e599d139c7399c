// The agent's end of the link.
#pragma once

#include "tools/memrun/link/message.h"

namespace memrun::link {

// Greets the launcher that serves the folder, with the shares in `mine`, and waits for its answer, a second
// at most. Both sides' descriptors are closed afterwards: the program keeps none. What the launcher shares
// must be mapped by `take`, which is given its greeting. False when nobody answers. Allocates nothing.
bool greet_launcher(const char* folder, Greeting& mine, void (*take)(const Greeting& answer));

// Whether the launcher that serves the folder can track the executable file or script `file`. False when
// nobody answers. Safe in a signal handler.
bool is_trackable(const char* folder, int file);

}  // namespace memrun::link
