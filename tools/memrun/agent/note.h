// The note about this process for the launcher. Safe in a signal handler and in an allocator hook.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// Makes the note of this process. When another process took the word already, the word gets a number; an heir
// has its predecessor's note.
void begin_note(Orders& orders);

// Appends one line to it. False when it cannot be opened, as in a process that gave up its rights to the
// folder.
bool append_note(const Orders& orders, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace memrun::agent
