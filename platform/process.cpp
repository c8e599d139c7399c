#include "platform/process.h"

#include <unistd.h>

#include <cerrno>

#include "platform/last_error.h"

namespace {

// Above every id that the kernel gives out.
constexpr HANDLE current_process = ~HANDLE{0};

}  // namespace

HANDLE GetCurrentProcess() {
    return current_process;
}

std::int32_t process_id() {
    return getpid();
}

std::int32_t parent_process_id() {
    return getppid();
}

bool TerminateProcess(HANDLE process, std::uint32_t exit_code) {
    if (process == current_process || process == static_cast<HANDLE>(getpid())) {
        _exit(static_cast<int>(exit_code));
    }
    SetLastError(EPERM);
    return false;
}
