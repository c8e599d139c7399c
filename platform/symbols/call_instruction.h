// Telling a return address from any other one by the code in front of it.
#pragma once

#include <cstdint>

#include "platform/symbols/loaded_image.h"

namespace symbols {

// Whether the instruction that ends at the address is a call. False when the code can't be read.
bool is_behind_call(std::uint64_t address, const LOADED_IMAGE& image);

}  // namespace symbols
