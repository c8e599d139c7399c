// The debug lines that the library tells, kept in place of being printed.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

inline std::vector<std::string> messages;

inline bool keep_message(const char*, const char* format, va_list args) {
    char text[1000];
    std::vsnprintf(text, sizeof text, format, args);
    messages.emplace_back(text);
    return true;
}
