// How much room UTF-8 text takes on a terminal. Bytes that are no UTF-8 take a column each, as do characters
// that the terminal would obey.
#pragma once

#include <cstddef>
#include <string_view>

namespace display {

std::size_t width(std::string_view text);

// How many bytes, of whole characters, the longest beginning has that takes no more than so many columns.
std::size_t bytes_within(std::string_view text, std::size_t columns);

// How many bytes, of whole characters, must go from the beginning to leave no more than so many columns.
std::size_t bytes_before_last(std::string_view text, std::size_t columns);

}  // namespace display
