// Debug sections in a compression that libelf does not know.
#pragma once

#include <libelf.h>

#include <vector>

namespace symbols {

// The file's image with its zstd-compressed sections decompressed; empty when it has none.
std::vector<char> image_with_decoded_sections(Elf* elf);

}  // namespace symbols
