#include "platform/coarse_clock.h"

#include <ctime>

namespace {

std::int64_t milliseconds_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// At the load of the library.
const std::int64_t start = milliseconds_now();

}  // namespace

std::uint64_t coarse_clock_ms() {
    return static_cast<std::uint64_t>(milliseconds_now() - start);
}
