#include "platform/mapping_text.h"

#include <algorithm>
#include <charconv>

namespace {

// Takes a number and the one character behind it off the front of text.
bool take_number(std::string_view& text, int base, char behind, std::uint64_t& value) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop == end || *stop != behind) return false;
    text.remove_prefix(static_cast<std::size_t>(stop + 1 - text.data()));
    return true;
}

bool skip_field(std::string_view& text) {
    const std::size_t end = text.find(' ');
    if (end == std::string_view::npos) return false;
    text.remove_prefix(end + 1);
    return true;
}

}  // namespace

std::optional<MAPPING_LINE> parse_mapping_line(std::string_view line) {
    MAPPING_LINE mapping;
    if (!take_number(line, 16, '-', mapping.begin) || !take_number(line, 16, ' ', mapping.end)) return {};
    const std::string_view access = line.substr(0, 4);
    if (access.size() != 4 || mapping.end <= mapping.begin) return {};
    mapping.is_accessible = access.substr(0, 3) != "---";
    mapping.is_writable = access[1] == 'w';
    mapping.is_executable = access[2] == 'x';
    mapping.is_shared = access[3] == 's';
    constexpr int fields_before_inode = 3;  // access, offset, device
    for (int i = 0; i < fields_before_inode; ++i)
        if (!skip_field(line)) return {};
    const auto [digits_end, error] = std::from_chars(line.data(), line.data() + line.size(), mapping.inode);
    if (error != std::errc()) return {};
    line.remove_prefix(static_cast<std::size_t>(digits_end - line.data()));
    mapping.name = line.substr(std::min(line.find_first_not_of(' '), line.size()));
    return mapping;
}
