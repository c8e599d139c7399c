// A clock that costs next to nothing, for events.
#pragma once

#include <cstdint>

// Milliseconds since the process began, sleep of the machine left out; a few milliseconds late.
std::uint64_t coarse_clock_ms();
