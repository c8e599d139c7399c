#include "platform/structured_exceptions.h"

#include <setjmp.h>
#include <ucontext.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "platform/alternate_stack.h"

namespace {

constexpr int fault_signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int signal_bound = 32;  // all of them are below it

std::atomic<SE_TRANSLATOR> installed_translator{nullptr};
struct sigaction earlier[signal_bound];

// Where an ignored fault of this thread goes on: the innermost call_with_catch_all.
struct CATCH_ALL {
    sigjmp_buf resume;
};
constinit thread_local CATCH_ALL* innermost __attribute__((tls_model("initial-exec"))) = nullptr;

std::uintptr_t register_of(void* context, int which) {
    return static_cast<std::uintptr_t>(static_cast<ucontext_t*>(context)->uc_mcontext.gregs[which]);
}

// A callback that leaves by a jump of its own leaves a record here that lies on a stack which is gone. Such a
// record is not below the fault on the same stack.
bool is_alive(const CATCH_ALL* record, std::uintptr_t fault_stack) {
    const auto frame = reinterpret_cast<std::uintptr_t>(record);
    return record != nullptr && frame > fault_stack &&
           is_on_alternate_stack(frame) == is_on_alternate_stack(fault_stack);
}

void put_back_and_repeat(int signal, const siginfo_t& info) {
    sigaction(signal, &earlier[signal], nullptr);
    // What a process sent does not come again by itself.
    if (info.si_code <= 0) raise(signal);
}

void on_fault(int signal, siginfo_t* info, void* context) {
    const int saved_errno = errno;
    EXCEPTION_RECORD record = {static_cast<std::uint32_t>(signal),
                               reinterpret_cast<void*>(register_of(context, REG_RIP)), info->si_addr};
    EXCEPTION_POINTERS pointers = {&record, context};
    const SE_TRANSLATOR translator = installed_translator.load();
    if (translator != nullptr) translator(record.ExceptionCode, &pointers);
    CATCH_ALL* const resume = innermost;
    innermost = nullptr;
    if (is_alive(resume, register_of(context, REG_RSP))) siglongjmp(resume->resume, 1);
    put_back_and_repeat(signal, *info);
    errno = saved_errno;
}

// A fault while one is handled must reach the handler too, hence no signal is blocked meanwhile.
bool install_handlers() {
    struct sigaction action = {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    for (const int signal : fault_signals) sigaction(signal, &action, &earlier[signal]);
    return true;
}

// A function of its own: no variable of it changes between the two returns of sigsetjmp.
bool run_guarded(void (*work)(void*), void* argument) {
    CATCH_ALL here;
    CATCH_ALL* const outer = innermost;
    if (sigsetjmp(here.resume, 0) != 0) return false;
    innermost = &here;
    work(argument);
    innermost = outer;
    return true;
}

}  // namespace

void _set_se_translator(SE_TRANSLATOR translator) {
    installed_translator.store(translator);
    if (translator == nullptr) return;
    give_alternate_stack();
    static const bool installed = install_handlers();
    static_cast<void>(installed);
}

bool se_translator_is_set() {
    return installed_translator.load() != nullptr;
}

void call_with_catch_all(void (*work)(void*), void* argument, void (*failed)()) {
    try {
        if (!run_guarded(work, argument)) failed();
    } catch (...) {
        innermost = nullptr;
        failed();  // in here, where even the unwinding of a cancelled thread still counts as caught
    }
}
