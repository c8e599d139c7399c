#include "platform/symbols/own_stack.h"

#include "platform/own_stack.h"

namespace symbols {

void run_on_own_stack(const std::function<void()>& action) {
    static constinit OWN_STACK stack;
    stack.run(action);
}

}  // namespace symbols
