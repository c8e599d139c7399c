#include "platform/c_runtime.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>

namespace {

constexpr std::size_t stack_text_size = 8192;

// A double has no digit other than 0 behind this place, and at most 309 in front of the point.
constexpr int last_place = 1074;
constexpr int most_whole_digits = std::numeric_limits<double>::max_exponent10 + 1;

constexpr std::size_t most_digits = 512;
thread_local char digits_of_thread[most_digits + 1];

// The C library keeps the last byte of its buffer for the terminator, so a text that just fits has to be
// made elsewhere.
int format_to_the_brim(char* buffer, std::size_t count, const char* format, va_list args) {
    char on_stack[stack_text_size + 1];
    std::unique_ptr<char[]> on_heap;
    if (count > stack_text_size) on_heap.reset(new char[count + 1]);
    char* text = on_heap ? on_heap.get() : on_stack;
    int length = std::vsnprintf(text, count + 1, format, args);
    if (length < 0) return -1;
    std::memcpy(buffer, text, count);
    return length;
}

const char* give_digits(const char* digits, std::size_t length, int zeros) {
    std::size_t kept = std::min(length, most_digits);
    std::memcpy(digits_of_thread, digits, kept);
    std::size_t padding = std::min<std::size_t>(zeros, most_digits - kept);
    std::memset(digits_of_thread + kept, '0', padding);
    digits_of_thread[kept + padding] = '\0';
    return digits_of_thread;
}

}  // namespace

int _vsnprintf(char* buffer, std::size_t count, const char* format, va_list args) {
    va_list first_reading;
    va_copy(first_reading, args);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_copy is not seen to begin the list
    int length = std::vsnprintf(buffer, count, format, first_reading);
    va_end(first_reading);
    if (length < 0 || static_cast<std::size_t>(length) > count) return -1;
    if (static_cast<std::size_t>(length) < count) return length;
    va_list second_reading;
    va_copy(second_reading, args);
    length = format_to_the_brim(buffer, count, format, second_reading);
    va_end(second_reading);
    return length;
}

const char* _fcvt(double value, int places, int* decimal_position, int* sign) {
    *sign = std::signbit(value) ? 1 : 0;
    *decimal_position = 0;
    if (!std::isfinite(value)) return give_digits(std::isnan(value) ? "nan" : "inf", 3, 0);
    places = std::max(places, 0);
    if (value == 0) return give_digits("", 0, places);

    char text[most_whole_digits + 1 + last_place];
    int exact_places = std::min(places, last_place);
    // std::to_chars needs neither heap nor locale, and rounds the exact value as snprintf does.
    char* end =
        std::to_chars(text, text + sizeof(text), std::fabs(value), std::chars_format::fixed, exact_places)
            .ptr;
    char* fraction = exact_places > 0 ? end - exact_places : end;
    char* point = exact_places > 0 ? fraction - 1 : end;
    int further_zeros = places - exact_places;
    if (text[0] != '0') {
        *decimal_position = static_cast<int>(point - text);
        std::memmove(point, fraction, static_cast<std::size_t>(exact_places));
        return give_digits(text, static_cast<std::size_t>(point - text + exact_places), further_zeros);
    }
    char* first_digit = std::find_if(fraction, end, [](char digit) { return digit != '0'; });
    *decimal_position = -static_cast<int>(first_digit - fraction);
    return give_digits(first_digit, static_cast<std::size_t>(end - first_digit),
                       first_digit == end ? 0 : further_zeros);
}

int _wctomb(char* bytes, wchar_t character) {
    std::mbstate_t state{};
    std::size_t length = std::wcrtomb(bytes, character, &state);
    return length == static_cast<std::size_t>(-1) ? -1 : static_cast<int>(length);
}
