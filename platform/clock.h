// The clock of the report trailers and of the samples.
#pragma once

#include <cstdint>

// Milliseconds of wall time since the process began; -1 when there is no clock.
std::int32_t clock_ms();

// Milliseconds since 1970 at which the process began, by the wall clock as it stands now; 0 when there is no
// clock.
std::int64_t process_start_ms();
