#pragma once

// Names of functions as people read them.

#include <string>
#include <string_view>

namespace readable {

// The name without inline namespaces (std::__cxx11, json_abi_v3_11_2, __1), without template arguments that
// are the library's defaults (allocators, comparisons, hashes, deleters, traits), and with the short names of
// types that have one: "std::string". A text that is no name of C++ comes back as it is. Two names may become
// one.
std::string name(std::string_view whole);

}  // namespace readable
