#include "platform/own_stack.h"

#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstddef>
#include <exception>
#include <new>

// The sanitizers follow a thread on its own stack only.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KTL_MEM_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KTL_MEM_IS_SANITIZED 1
#endif
#endif
#ifndef KTL_MEM_IS_SANITIZED
#define KTL_MEM_IS_SANITIZED 0
#endif

namespace {

constexpr std::size_t guard_size = 4096;
constexpr std::size_t stack_size = std::size_t{2} << 20;

struct RUN {
    const std::function<void()>* action = nullptr;
    std::exception_ptr failure;
};
// At the top of the stack: they take two kilobytes, which the caller's stack may not have.
struct CONTEXTS {
    ucontext_t caller;
    ucontext_t callee;
};
constexpr std::size_t contexts_size = (sizeof(CONTEXTS) + 63) / 64 * 64;
// What the function that a context begins with cannot be given. Runs on two stacks can begin at once.
thread_local RUN* beginning __attribute__((tls_model("initial-exec"))) = nullptr;

// Address space, of which the pages that are used cost memory; null when there is none.
void* make_stack() {
    void* memory =
        mmap(nullptr, guard_size + stack_size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    void* stack = static_cast<char*>(memory) + guard_size;
    return mprotect(stack, stack_size, PROT_READ | PROT_WRITE) == 0 ? stack : nullptr;
}

void run_action() {
    RUN& run = *beginning;
    try {
        (*run.action)();
    } catch (...) {
        run.failure = std::current_exception();
    }
}

// Signals wait while this lives. Both contexts have its mask: one that a change of context lifted would let a
// waiting signal in before the stack is changed.
class SIGNALS_WAIT {
  public:
    SIGNALS_WAIT() {
        sigset_t signals;
        sigfillset(&signals);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&signals, fault);
        pthread_sigmask(SIG_BLOCK, &signals, &before_);
    }
    ~SIGNALS_WAIT() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SIGNALS_WAIT(const SIGNALS_WAIT&) = delete;
    SIGNALS_WAIT& operator=(const SIGNALS_WAIT&) = delete;

  private:
    sigset_t before_;
};

// False when there are no contexts here.
bool run_on(void* stack, RUN* run) {
    const SIGNALS_WAIT meanwhile;
    auto& [caller, callee] = *new (static_cast<char*>(stack) + stack_size - contexts_size) CONTEXTS;
    if (getcontext(&callee) != 0) return false;
    callee.uc_stack.ss_sp = stack;
    callee.uc_stack.ss_size = stack_size - contexts_size;
    callee.uc_link = &caller;
    makecontext(&callee, run_action, 0);
    beginning = run;
    swapcontext(&caller, &callee);
    return true;
}

}  // namespace

void OWN_STACK::run(const std::function<void()>& action) {
    if (memory == nullptr && !KTL_MEM_IS_SANITIZED) memory = make_stack();
    RUN run;
    run.action = &action;
    if (memory == nullptr || !run_on(memory, &run)) {
        action();
        return;
    }
    if (run.failure != nullptr) std::rethrow_exception(run.failure);
    // The stack that ran it keeps its address, and nobody reads it there again.
}  // NOLINT(clang-analyzer-core.StackAddressEscape)
