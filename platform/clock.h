// The clock of the report trailers.
#pragma once

#include <cstdint>

// Milliseconds of wall time since the process began; -1 when there is no clock.
std::int32_t clock_ms();
