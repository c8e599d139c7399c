// One conversion of a format, and the field of text that it becomes.
#pragma once

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "stl_format/staging_buffer.h"

namespace STL_FORMAT {

// What stands between the percent sign and the type.
struct CONVERSION {
    int width = 0;
    int precision = -1;  // -1: none given
    bool left_justify = false;
    bool always_sign = false;
    bool sign_blank = false;
    bool alternate = false;
    bool zero_fill = false;
    bool is_short = false;
    bool is_long = false;
    bool is_64_bits = false;
    bool is_wide = false;
};

// A prefix, then zeros and characters, which together are the field's text.
struct FIELD {
    char prefix[2];
    int prefix_length = 0;
    std::int64_t zeros = 0;
    const char* text = "";
    const wchar_t* wide_text = nullptr;  // stands in for text when set
    std::size_t length = 0;              // of either, in its own characters
    bool suppressed = false;

    void add_prefix(char character) { prefix[prefix_length++] = character; }
};

// Writes the field with its fill.
void write_field(STAGING_BUFFER& out, const CONVERSION& conversion, const FIELD& field);

// Room for the text of any conversion but those that point to their argument.
inline constexpr std::size_t work_size = 512;

// Carries out the conversion `type` with the next arguments of the list: takes them and builds the field,
// in `work` where the text is not the argument itself. May switch off the conversion's zero fill.
FIELD convert(char type, CONVERSION& conversion, int count_so_far, char (&work)[work_size], va_list args);

}  // namespace STL_FORMAT
