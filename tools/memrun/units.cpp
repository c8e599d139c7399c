#include "tools/memrun/units.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace memrun {

namespace {

template <class... Values>
std::string print(const char* format, Values... values) {
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

}  // namespace

std::string bytes_text(std::int64_t bytes) {
    if (bytes > -1024 && bytes < 1024) return std::to_string(bytes) + " bytes";
    constexpr std::array<const char*, 6> units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; std::abs(value) >= 1023.95 && unit + 1 < units.size(); ++unit) value /= 1024;
    return print("%.1f %s", value, units[unit]);
}

std::string count_text(std::int64_t count) {
    std::string text = std::to_string(count);
    const std::size_t first = count < 0 ? 1 : 0;
    for (std::size_t at = text.size(); at > first + 3;) text.insert(at -= 3, 1, ',');
    return text;
}

std::string seconds_text(double seconds) {
    return print("%.*f s", seconds < 10 ? 2 : seconds < 100 ? 1 : 0, seconds);
}

}  // namespace memrun
