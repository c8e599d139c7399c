// Formatting into std::string without a fixed buffer, and case change without a locale.
//
// All calls are safe from any thread on different strings. None may be made in an allocator hook. Text
// arguments must not point into the string that is written.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <type_traits>

#include "ktl_mem/export.h"

// A string with its length, for the conversion Z. With the size w, `characters` points to wide characters;
// the lengths count bytes all the same.
struct STL_COUNTED_STRING {
    std::uint16_t length;
    std::uint16_t maximum_length;  // not read
    const char* characters;        // need not be terminated
};

// Appends formatted text to *out and returns the number of characters written. The conversions are the
// library's own: docs/formatting.md lists them, their limits, and how they differ from printf. A null out
// or format writes nothing and gives 0. After 2147483647 characters formatting stops, and the result is -1.
// The caller's list is left behind the last argument used, so that the next va_arg or call reads on there;
// only va_end is needed at the end.
KTL_MEM_API int stl_output(std::string* out, const char* format, va_list args);

// What stl_output promises about the list rests on this: as a parameter the list is a pointer to the
// caller's own.
static_assert(std::is_array_v<va_list>, "stl_output needs a list that calls take by its address");

// Replaces the content of *out by the text that the C library's printf family makes of format and
// arguments. When that fails, and for a null out or format, *out keeps its content. The position of `args`
// does not change. Text of more than 8192 characters costs one allocation besides the string's own.
KTL_MEM_API void stl_vsprintf(std::string* out, const char* format, va_list args);

namespace MEM_DETAIL {
KTL_MEM_API void stl_raw_sprintf(std::string* out, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
}

// Change A to Z, or a to z, in place and return the same string. All other bytes stay.
KTL_MEM_API std::string& stl_tolower(std::string& text);
KTL_MEM_API std::string& stl_toupper(std::string& text);
