#pragma once

// The fields of a report's row: parted by tabs, numbers in decimal, no quotes and no escapes.

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace memview {

// The whole text as a number; false when it is none or does not fit.
template <typename Number>
bool parse_number(std::string_view text, Number& value, int base = 10) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && end == text.data() + text.size() && !text.empty();
}

// Walks the fields of one line. A line of n tabs has n + 1 fields; an empty line has one empty field.
class Fields {
  public:
    explicit Fields(std::string_view line) : at_(line.data()), end_(line.data() + line.size()) {}

    bool next(std::string_view& field) {
        if (at_ == nullptr) return false;
        const auto left = static_cast<std::size_t>(end_ - at_);
        const void* tab = left == 0 ? nullptr : std::memchr(at_, '\t', left);
        const char* stop = tab != nullptr ? static_cast<const char*>(tab) : end_;
        field = {at_, static_cast<std::size_t>(stop - at_)};
        at_ = tab != nullptr ? stop + 1 : nullptr;
        return true;
    }

    // The next field when it is a decimal number; otherwise it is not known how far this has come. Splits and
    // parses in one go, since a large report is little else than short numbers.
    template <typename Number>
    bool next_number(Number& value) {
        if (at_ == nullptr) return false;
        const bool negative = std::is_signed_v<Number> && at_ != end_ && *at_ == '-';
        const char* const first = at_ + (negative ? 1 : 0);
        const char* at = first;
        Number magnitude = 0;
        while (at - first < always_fit && at != end_ && *at >= '0' && *at <= '9') {
            magnitude = magnitude * 10 + static_cast<Number>(*at++ - '0');
        }
        const bool ends = at == end_ || *at == '\t';
        if (at == first || !ends) {
            std::string_view field;
            return next(field) && parse_number(field, value);
        }
        value = negative ? -magnitude : magnitude;
        at_ = at == end_ ? nullptr : at + 1;
        return true;
    }

    bool at_end() const { return at_ == nullptr; }

    std::size_t rest() {
        std::size_t count = 0;
        for (std::string_view field; next(field);) ++count;
        return count;
    }

  private:
    static constexpr std::ptrdiff_t always_fit = 18;  // digits of a number of 64 bits

    const char* at_;
    const char* end_;
};

}  // namespace memview
