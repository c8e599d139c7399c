#pragma once

#include <string_view>

namespace memview {

// A file that the build put into the program: the sources of the page and its chart libraries, by base name.
std::string_view asset(std::string_view name);

}  // namespace memview
