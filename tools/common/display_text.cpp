#include "tools/common/display_text.h"

#include <algorithm>
#include <clocale>
#include <cwchar>

namespace display {

namespace {

// The C library knows how wide a character is, in a locale of UTF-8 alone, whatever the user has set.
class Utf8Scope {
  public:
    Utf8Scope() : before_(uselocale(utf8())) {}
    ~Utf8Scope() { uselocale(before_); }
    Utf8Scope(const Utf8Scope&) = delete;
    Utf8Scope& operator=(const Utf8Scope&) = delete;

  private:
    // Null, which changes nothing, where there is no such locale.
    static locale_t utf8() {
        static const locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return made;
    }
    locale_t before_;
};

struct Character {
    std::size_t bytes;
    std::size_t columns;
};

Character first_of(std::string_view text) {
    if (static_cast<unsigned char>(text.front()) < 0x80) return {1, 1};
    wchar_t wide = 0;
    std::mbstate_t state{};
    const std::size_t bytes = std::mbrtowc(&wide, text.data(), text.size(), &state);
    if (bytes == 0 || bytes > text.size()) return {1, 1};
    const int columns = wcwidth(wide);
    return {bytes, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

}  // namespace

std::size_t width(std::string_view text) {
    const Utf8Scope utf8;
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character next = first_of(text);
        columns += next.columns;
        text.remove_prefix(next.bytes);
    }
    return columns;
}

std::size_t bytes_within(std::string_view text, std::size_t columns) {
    const Utf8Scope utf8;
    std::size_t bytes = 0;
    while (bytes < text.size()) {
        const Character next = first_of(text.substr(bytes));
        if (next.columns > columns) break;
        columns -= next.columns;
        bytes += next.bytes;
    }
    return bytes;
}

std::size_t bytes_before_last(std::string_view text, std::size_t columns) {
    std::size_t left = width(text);
    const Utf8Scope utf8;
    std::size_t bytes = 0;
    while (left > columns) {
        const Character next = first_of(text.substr(bytes));
        left -= std::min(left, next.columns);
        bytes += next.bytes;
    }
    return bytes;
}

}  // namespace display
