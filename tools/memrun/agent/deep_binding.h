// Objects that the program opens with RTLD_DEEPBIND. With that flag they would find the C library's allocator
// before the preloaded one, and free with the one what the other gave.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// From here on the first object that is opened without the flag that it asked for goes into the note.
// `orders` must stay.
void note_deep_binding(const Orders& orders);

}  // namespace memrun::agent
