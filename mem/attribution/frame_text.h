// Filling the texts of a MEM_STACK_FRAME.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

// Cuts the text to the field and terminates it.
template <std::size_t size>
void mem_set_frame_text(char (&field)[size], std::string_view text) {
    const std::size_t length = std::min(text.size(), size - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}
