// The agent's end of the link.
#pragma once

#include "tools/memrun/link/message.h"

namespace memrun::link {

// Greets the launcher that serves the folder, with the shares in `mine`, and waits for its answer, a second
// at most. Both sides' descriptors are closed afterwards: the program keeps none. What the launcher shares
// must be mapped by `take`, which is given its greeting. False when nobody answers. Allocates nothing.
bool greet_launcher(const char* folder, Greeting& mine, void (*take)(const Greeting& answer));

}  // namespace memrun::link
