#include "platform/clock.h"

#include <ctime>
#include <limits>
#include <optional>

namespace {

// No value when there is no such clock.
std::optional<std::int64_t> milliseconds_of(clockid_t clock) {
    timespec now = {};
    if (clock_gettime(clock, &now) != 0) return std::nullopt;
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// Milliseconds since the machine started, sleep included.
std::optional<std::int64_t> milliseconds_now() {
    return milliseconds_of(CLOCK_BOOTTIME);
}

// The moment of the first call, which the load of the library makes: the process is milliseconds old then.
// The kernel's own figure would count what a process did before its exec.
std::optional<std::int64_t> process_start() {
    static const std::optional<std::int64_t> start = milliseconds_now();
    return start;
}

__attribute__((constructor)) void note_process_start() {
    process_start();
}

}  // namespace

std::int32_t clock_ms() {
    const auto start = process_start();
    const auto now = milliseconds_now();
    if (!start || !now || *now - *start > std::numeric_limits<std::int32_t>::max()) return -1;
    return static_cast<std::int32_t>(*now - *start);
}

std::int64_t process_start_ms() {
    const auto start = process_start();
    const auto now = milliseconds_now();
    const auto wall = milliseconds_of(CLOCK_REALTIME);
    if (!start || !now || !wall) return 0;
    return *wall - (*now - *start);
}
