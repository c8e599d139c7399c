// Whether the code that a signal interrupted can be left where it stands.
#pragma once

namespace memrun::agent {

// Notes where allocator and tracker lie. Calls the loader; to be made once, before signals are handled.
void find_guarded_code();

// True when the interrupted thread is not inside the allocator or the tracker, whose locks the writing of
// reports needs. `context` is the third argument of a signal's handler. Can be wrong towards false. Safe in a
// handler.
bool can_be_left(const void* context);

// The same question for the calling code, which may itself be a handler that interrupted something.
bool can_be_left_here();

}  // namespace memrun::agent
