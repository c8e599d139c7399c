// Whether a thread is inside the allocator or the tracker, whose locks the writing of reports needs. A thread
// that forks counts as such.
#pragma once

namespace memrun::agent {

// Notes where allocator and tracker lie. Calls the loader; to be made once, before signals are handled.
void find_guarded_code();

// Whether this thread is inside them; in a signal's handler, whether the interrupted code is. Safe in a
// handler.
bool is_in_guarded_code();

// The same for what lies beyond the innermost call of the allocator. To be asked in a hook, which the
// allocator calls with its locks given back.
bool is_in_guarded_code_beyond_hook();

// Whether the allocator or the tracker has made the call of the system that a hook stands in for, and not the
// program. To be asked in a hook of mmap and its like.
bool is_hooked_call_guarded();

}  // namespace memrun::agent
