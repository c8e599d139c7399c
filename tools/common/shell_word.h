// Text as a word of the shell's language, for commands that a user may copy.
#pragma once

#include <string>

inline std::string shell_word(const std::string& text) {
    if (text.find_first_of(" \t\n'\"\\$`*?[](){}<>|&;#~!") == std::string::npos) return text;
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}
