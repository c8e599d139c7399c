// Figures as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace memrun {

std::string bytes_text(std::int64_t bytes);  // "512 bytes", "1.5 KiB", "45.6 MiB"
std::string count_text(std::int64_t count);  // "1,234,567"
std::string seconds_text(double seconds);    // "0.42 s", "12.3 s", "754 s"

}  // namespace memrun
