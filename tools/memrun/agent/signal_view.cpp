// sigaction and signal as the program sees them: the agent's handler for the end signals looks like the
// default disposition, and asking for the default puts it back. Programs decide by what they find (an
// interpreter takes SIGINT only when nobody else has it), and many end by setting the default and sending
// themselves the signal.
#include <dlfcn.h>

#include <csignal>

#include "tools/memrun/agent/end_signals.h"
#include "tools/memrun/agent/real_signals.h"

#define MEMRUN_IN_FRONT extern "C" __attribute__((visibility("default")))

namespace memrun::agent {

namespace {

// Looked up at the first use, which can come before this object's own start.
template <class Function>
Function* next_in_line(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool is_default(const struct sigaction* action) {
    return action != nullptr && action->sa_handler == SIG_DFL;
}

}  // namespace

int real_sigaction(int signo, const struct sigaction* action, struct sigaction* old) {
    static auto* const real = next_in_line<int(int, const struct sigaction*, struct sigaction*)>("sigaction");
    return real(signo, action, old);
}

}  // namespace memrun::agent

using namespace memrun::agent;

MEMRUN_IN_FRONT int sigaction(int signo, const struct sigaction* action, struct sigaction* old) noexcept {
    const struct sigaction stand_in = default_stand_in();
    if (is_default(action) && is_watched(signo)) action = &stand_in;
    const int result = real_sigaction(signo, action, old);
    if (result == 0 && old != nullptr && is_stand_in(*old)) *old = {};
    return result;
}

MEMRUN_IN_FRONT sighandler_t signal(int signo, sighandler_t handler) noexcept {
    static auto* const real = next_in_line<sighandler_t(int, sighandler_t)>("signal");
    struct sigaction old = {};
    if (is_watched(signo)) real_sigaction(signo, nullptr, &old);
    const bool was_stand_in = is_stand_in(old);
    sighandler_t result = old.sa_handler;
    if (handler == SIG_DFL && is_watched(signo)) {
        const struct sigaction stand_in = default_stand_in();
        real_sigaction(signo, &stand_in, nullptr);
    } else {
        result = real(signo, handler);
    }
    return was_stand_in ? SIG_DFL : result;
}
