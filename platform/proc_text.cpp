#include "platform/proc_text.h"

#include <charconv>
#include <cstring>
#include <limits>

namespace {

constexpr std::uint64_t bytes_per_kb = 1024;

// The number at the start of text, saturated; no value when there is none.
std::optional<std::uint64_t> leading_number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end == text.data()) return std::nullopt;
    return error == std::errc() ? value : std::numeric_limits<std::uint64_t>::max();
}

// Takes one field and the blank after it off the front of text.
std::string_view next_field(std::string_view& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return field;
}

}  // namespace

std::uint64_t proc_kilobytes(std::string_view text) {
    const std::size_t digits = text.find_first_not_of(" \t");
    if (digits == std::string_view::npos) return 0;
    const std::uint64_t kb = leading_number(text.substr(digits)).value_or(0);
    const bool fits = kb <= std::numeric_limits<std::uint64_t>::max() / bytes_per_kb;
    return fits ? kb * bytes_per_kb : std::numeric_limits<std::uint64_t>::max();
}

void PROC_KEY_READER::feed(std::string_view piece) {
    while (!piece.empty()) {
        const std::size_t end = piece.find('\n');
        const std::string_view part = piece.substr(0, end);
        too_long = too_long || part.size() > sizeof line - length;
        if (!too_long) {
            std::memcpy(line + length, part.data(), part.size());
            length += part.size();
        }
        if (end == std::string_view::npos) return;
        if (!too_long) take_line();
        length = 0;
        too_long = false;
        piece.remove_prefix(end + 1);
    }
}

void PROC_KEY_READER::take_line() {
    const std::string_view text(line, length);
    for (PROC_FIGURE& figure : figures) {
        if (!text.starts_with(figure.key)) continue;
        figure.bytes = proc_kilobytes(text.substr(figure.key.size()));
        return;
    }
}

std::optional<std::uint64_t> proc_stat_page_faults(std::string_view stat) {
    constexpr int fields_before_minor = 7;  // state, parent, group, session, terminal, its group, flags
    const std::size_t name_end = stat.rfind(") ");
    if (name_end == std::string_view::npos) return std::nullopt;
    stat.remove_prefix(name_end + 2);
    for (int i = 0; i < fields_before_minor; ++i) next_field(stat);
    const auto minor = leading_number(next_field(stat));
    next_field(stat);  // of the children that it has waited for
    const auto major = leading_number(next_field(stat));
    if (!minor || !major) return std::nullopt;
    return *minor + *major;
}
