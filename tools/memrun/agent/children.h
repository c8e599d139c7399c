// The children that this process leaves behind.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// Writes each child that there is now into the note. Safe where reports may be written.
void note_children(const Orders& orders);

}  // namespace memrun::agent
