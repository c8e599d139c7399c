// Case change of the 26 letters, whatever the locale.
#include "ktl_mem/format.h"

namespace {

constexpr char case_distance = 'a' - 'A';

}  // namespace

std::string& stl_tolower(std::string& text) {
    for (char& byte : text)
        if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte + case_distance);
    return text;
}

std::string& stl_toupper(std::string& text) {
    for (char& byte : text)
        if (byte >= 'a' && byte <= 'z') byte = static_cast<char>(byte - case_distance);
    return text;
}
