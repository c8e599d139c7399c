// Programs that were built with a sanitizer, which brings an allocator of its own and cannot stand another
// one in front of it.
#pragma once

#include <string>

namespace memrun {

// "AddressSanitizer" and the like, when the executable file begins one; else empty.
std::string sanitizer_of(const std::string& path);

}  // namespace memrun
