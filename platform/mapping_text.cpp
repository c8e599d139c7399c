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

std::optional<NUMA_LINE> parse_numa_line(std::string_view line) {
    NUMA_LINE numa;
    if (!take_number(line, 16, ' ', numa.begin)) return {};
    std::uint64_t pages = 0;
    std::uint64_t page_kb = 4;
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(' '), line.size());
        std::string_view field = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        const std::size_t equals = field.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view key = field.substr(0, equals);
        std::uint64_t value = 0;
        std::from_chars(field.data() + equals + 1, field.data() + field.size(), value);
        const bool is_node = key.size() > 1 && key[0] == 'N' && key[1] >= '0' && key[1] <= '9';
        if (is_node) pages += value;
        if (key == "kernelpagesize_kB") page_kb = value;
    }
    numa.resident = pages * page_kb * 1024;
    return numa;
}
