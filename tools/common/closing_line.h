// How the library ends a report: what does not end so is cut.
#pragma once

#include <string_view>

inline bool is_closing_line(std::string_view line) {
    return line.starts_with("Time spent dumping:\t") || line == "Error timing this dump.";
}
