#include "platform/symbols/name_channel.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

namespace symbols {

bool wait_for_change(const void* word, std::uint32_t value, int milliseconds) {
    const timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    return syscall(SYS_futex, word, FUTEX_WAIT, value, milliseconds < 0 ? nullptr : &limit, nullptr, 0) !=
               0 &&
           errno == ETIMEDOUT;
}

void wake_waiting(const void* word) {
    syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace symbols
