// The exits in front of the C library's: threads that exit at once do it in turn, and programs that leave in
// a hurry leave their reports, too.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

#include "tools/memrun/agent/process_end.h"

#define MEMRUN_IN_FRONT extern "C" __attribute__((visibility("default")))

MEMRUN_IN_FRONT void exit(int status) noexcept {
    static auto* const real = reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "exit"));
    memrun::agent::on_exit_call();
    real(status);
    __builtin_unreachable();
}

MEMRUN_IN_FRONT void _exit(int status) {
    static auto* const real = reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "_exit"));
    memrun::agent::on_fast_exit();
    real(status);
    __builtin_unreachable();
}

MEMRUN_IN_FRONT void _Exit(int status) noexcept {
    _exit(status);
}
