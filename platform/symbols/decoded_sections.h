// Debug sections in a compression that libelf does not know, or is slow at.
#pragma once

#include <libelf.h>

#include <cstddef>
#include <memory>

namespace symbols {

struct DECODED_IMAGE {
    std::unique_ptr<char[]> bytes;  // null where the file has no such section
    std::size_t size = 0;
};

// The file's image with its compressed sections decompressed, and without those that names do not need.
DECODED_IMAGE image_with_decoded_sections(Elf* elf);

}  // namespace symbols
