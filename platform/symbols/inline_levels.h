// The functions that an address lies in at once, because the compiler put one into another.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <vector>

namespace symbols {

// The function's own entry first, then the entry of each inlined call that holds the address, inwards.
std::vector<Dwarf_Die> inline_levels(const Dwarf_Die& function, std::uint64_t address);

}  // namespace symbols
