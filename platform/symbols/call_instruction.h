// Telling a return address from any other one by the code in front of it.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace symbols {

// Of each address, whether the instruction that ends there is a call. False when the code can't be read.
// A direct call counts when it stays in the image.
std::vector<bool> are_behind_calls(std::span<const std::uint64_t> addresses, std::uint64_t image_begin,
                                   std::uint64_t image_end);

}  // namespace symbols
