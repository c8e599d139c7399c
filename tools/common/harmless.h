// Text of unknown origin, such as a path or a function's name, as it may go to a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Every control character, line ends and those of two bytes included, becomes a question mark.
inline std::string harmless(std::string_view text) {
    std::string out(text);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const auto byte = static_cast<unsigned char>(out[i]);
        const bool c1_control =
            byte == 0xc2 && i + 1 < out.size() && static_cast<unsigned char>(out[i + 1]) < 0xa0;
        if (c1_control) out[i + 1] = '?';
        if (byte < 0x20 || byte == 0x7f || c1_control) out[i] = '?';
    }
    return out;
}
