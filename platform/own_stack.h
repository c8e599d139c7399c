// A stack for what needs more of it than the program's threads and coroutines may have.
#pragma once

#include <functional>

class OWN_STACK {
  public:
    // Runs the action and returns when it has ended; what it throws comes out here. One thread at a time, and
    // not from within an action of the same stack. Signals wait meanwhile, but for those of a fault: their
    // handlers may not cope with a stack that the program knows nothing of. Where there is no memory for a
    // stack, the action runs on the caller's.
    void run(const std::function<void()>& action);

  private:
    void* memory = nullptr;  // made at the first run, never given back
};
