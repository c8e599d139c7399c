// pthread_create in front of the C library's: the one moment at which every thread of the process, whoever
// starts it, can be given an alternate stack. Signal handlers and the terminate handler are settings of the
// whole process here, so the stack is all that a thread lacks.
//
// While no translator is installed a call goes straight on. This file is linked into the shared library only,
// never into a test program: a sanitizer has a pthread_create of its own. It takes effect where the library
// is linked or preloaded, not where it comes by dlopen; there a stack overflow of a thread ends the process
// without a message, and all other faults still have theirs.

#include <dlfcn.h>
#include <pthread.h>

#include <new>

#include "ktl_mem/export.h"
#include "platform/alternate_stack.h"
#include "platform/structured_exceptions.h"

namespace {

using START = void* (*)(void*);
using CREATE = int (*)(pthread_t*, const pthread_attr_t*, START, void*);

// What the thread is to run; it lies in the owner's bytes of the stack.
struct THREAD_START {
    START function;
    void* argument;
};
static_assert(sizeof(THREAD_START) <= ALTERNATE_STACK::owner_bytes);

CREATE next_create() {
    static const auto next = reinterpret_cast<CREATE>(dlsym(RTLD_NEXT, "pthread_create"));
    return next;
}

// At the load, so that no later thread start waits for the loader.
__attribute__((constructor)) void find_next_create() {
    next_create();
}

// Also ends with a thread that leaves by pthread_exit or is cancelled.
class STACK_IN_USE {
  public:
    explicit STACK_IN_USE(ALTERNATE_STACK* used) : stack(used) { stack->use(); }
    ~STACK_IN_USE() {
        stack->stop_using();
        stack->destroy();
    }
    STACK_IN_USE(const STACK_IN_USE&) = delete;
    STACK_IN_USE& operator=(const STACK_IN_USE&) = delete;

  private:
    ALTERNATE_STACK* stack;
};

void* run_on_stack(void* argument) {
    auto* const stack = static_cast<ALTERNATE_STACK*>(argument);
    const THREAD_START start = *static_cast<THREAD_START*>(stack->owner_data());
    const STACK_IN_USE in_use(stack);
    return start.function(start.argument);
}

}  // namespace

extern "C" KTL_MEM_API int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, START function,
                                          void* argument) noexcept {
    ALTERNATE_STACK* const stack = se_translator_is_set() ? ALTERNATE_STACK::create() : nullptr;
    if (stack == nullptr) return next_create()(thread, attributes, function, argument);
    new (stack->owner_data()) THREAD_START{function, argument};
    const int error = next_create()(thread, attributes, run_on_stack, stack);
    if (error != 0) stack->destroy();
    return error;
}
