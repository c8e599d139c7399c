#pragma once

// The fields of a report's row: parted by tabs, numbers in decimal, no quotes and no escapes.

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace memview {

// Walks the fields of one line. A line of n tabs has n + 1 fields; an empty line has one empty field.
class Fields {
  public:
    explicit Fields(std::string_view line) : m_at(line.data()), m_end(line.data() + line.size()) {}

    bool next(std::string_view& field) {
        if (m_at == nullptr) return false;
        const auto left = static_cast<std::size_t>(m_end - m_at);
        const void* tab = left == 0 ? nullptr : std::memchr(m_at, '\t', left);
        const char* stop = tab != nullptr ? static_cast<const char*>(tab) : m_end;
        field = {m_at, static_cast<std::size_t>(stop - m_at)};
        m_at = tab != nullptr ? stop + 1 : nullptr;
        return true;
    }

    std::size_t rest() {
        std::size_t count = 0;
        for (std::string_view field; next(field);) ++count;
        return count;
    }

  private:
    const char* m_at;
    const char* m_end;
};

// The whole text as a number; false when it is none or does not fit.
template <typename Number>
bool parse_number(std::string_view text, Number& value, int base = 10) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && end == text.data() + text.size() && !text.empty();
}

}  // namespace memview
