// The caller of a frame whose description needs more than sp and bp, such as that of the loader's lazy
// binding, which counts from rbx. The registers are followed from this function outwards, through the
// frames that the walk has left behind; slow and rare.
#pragma once

#include "platform/stack_walk.h"

namespace unwind {

// Replaces *frame, which must be a frame of the calling thread further out than this call, by its caller.
// False when it was not reached or its caller is unknown.
bool step_by_all_registers(STACK_WALK_START* frame);

}  // namespace unwind
