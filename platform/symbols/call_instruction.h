// Telling a return address from any other one by the code in front of it.
#pragma once

#include <cstdint>

namespace symbols {

// Whether the instruction that ends at the address is a call. False when the code can't be read.
// A direct call counts when it stays in the image.
bool is_behind_call(std::uint64_t address, std::uint64_t image_begin, std::uint64_t image_end);

}  // namespace symbols
