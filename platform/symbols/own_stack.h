// A stack that the look-ups run on. libdw keeps 150 KB of a line table on the stack and the demangler 80
// bytes for each character of a name, while the threads and coroutines of the program may have 64 KB.
#pragma once

#include <functional>

namespace symbols {

// Runs the action and returns when it has ended; what it throws comes out here. One thread at a time, and
// not from within an action. Signals wait meanwhile, but for those of a fault: their handlers may not cope
// with a stack that the program knows nothing of.
void run_on_own_stack(const std::function<void()>& action);

}  // namespace symbols
