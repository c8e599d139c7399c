// stl_output with arguments as printf takes them.
#pragma once

#include <cstdarg>
#include <string>

#include "ktl_mem/format.h"

inline int append(std::string* text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int count = stl_output(text, format, args);
    va_end(args);
    return count;
}

template <class... ARGS>
std::string formatted(const char* format, ARGS... args) {
    std::string text;
    append(&text, format, args...);
    return text;
}
