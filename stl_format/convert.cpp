// The conversions, one function for each kind of argument.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "ktl_mem/format.h"
#include "platform/c_runtime.h"
#include "stl_format/field.h"

namespace STL_FORMAT {

namespace {

constexpr const char* null_text = "(null)";
constexpr const wchar_t* null_wide_text = L"(null)";
constexpr int pointer_digits = 2 * sizeof(void*);
constexpr int default_places = 6;

std::int64_t take_signed(const CONVERSION& conversion, va_list args) {
    if (conversion.is_64_bits) return va_arg(args, long long);
    if (conversion.is_long) return va_arg(args, long);
    int value = va_arg(args, int);
    return conversion.is_short ? static_cast<short>(value) : value;
}

std::uint64_t take_unsigned(const CONVERSION& conversion, va_list args) {
    if (conversion.is_64_bits) return va_arg(args, unsigned long long);
    if (conversion.is_long) return va_arg(args, unsigned long);
    unsigned value = va_arg(args, unsigned);
    return conversion.is_short ? static_cast<unsigned short>(value) : value;
}

void add_sign(FIELD& field, const CONVERSION& conversion, bool negative) {
    if (negative)
        field.add_prefix('-');
    else if (conversion.always_sign)
        field.add_prefix('+');
    else if (conversion.sign_blank)
        field.add_prefix(' ');
}

// The digits, and the zeros in front of them that the precision asks for. 0 has no digit of its own.
void set_digits(FIELD& field, CONVERSION& conversion, std::uint64_t number, int base,
                char (&work)[work_size]) {
    std::int64_t precision = 1;
    if (conversion.precision >= 0) {
        precision = conversion.precision;
        conversion.zero_fill = false;
    }
    field.text = work;
    if (number != 0)
        field.length =
            static_cast<std::size_t>(std::to_chars(work, work + work_size, number, base).ptr - work);
    field.zeros = std::max<std::int64_t>(precision - static_cast<std::int64_t>(field.length), 0);
}

FIELD convert_signed(CONVERSION& conversion, char (&work)[work_size], va_list args) {
    FIELD field;
    std::int64_t number = take_signed(conversion, args);
    add_sign(field, conversion, number < 0);
    auto magnitude = static_cast<std::uint64_t>(number);
    set_digits(field, conversion, number < 0 ? 0 - magnitude : magnitude, 10, work);
    return field;
}

FIELD convert_octal(CONVERSION& conversion, char (&work)[work_size], va_list args) {
    FIELD field;
    set_digits(field, conversion, take_unsigned(conversion, args), 8, work);
    if (conversion.alternate && field.zeros == 0) field.zeros = 1;
    return field;
}

FIELD convert_hexadecimal(CONVERSION& conversion, std::uint64_t number, bool upper_case,
                          char (&work)[work_size]) {
    FIELD field;
    if (conversion.alternate && number != 0) {
        field.add_prefix('0');
        field.add_prefix(upper_case ? 'X' : 'x');
    }
    set_digits(field, conversion, number, 16, work);
    if (upper_case)
        for (char* digit = work; digit != work + field.length; ++digit)
            if (*digit >= 'a') *digit = static_cast<char>(*digit - 'a' + 'A');
    return field;
}

FIELD convert_pointer(CONVERSION& conversion, char (&work)[work_size], va_list args) {
    conversion.precision = pointer_digits;
    auto number = reinterpret_cast<std::uintptr_t>(va_arg(args, void*));
    return convert_hexadecimal(conversion, number, true, work);
}

// Text that is cut off where its buffer ends.
class CUT_TEXT {
  public:
    explicit CUT_TEXT(char (&work)[work_size]) : begin(work), end(work), limit(work + work_size) {}

    void append(const char* text, std::size_t length) {
        length = std::min(length, room());
        std::memcpy(end, text, length);
        end += length;
    }
    void fill(char character, int count) {
        std::size_t length = std::min(static_cast<std::size_t>(std::max(count, 0)), room());
        std::memset(end, character, length);
        end += length;
    }
    std::size_t length() const { return static_cast<std::size_t>(end - begin); }

  private:
    std::size_t room() const { return static_cast<std::size_t>(limit - end); }

    char* begin;
    char* end;
    char* limit;
};

// A sign in front takes its place in the buffer before it moves to the prefix.
std::size_t make_float_text(double value, int places, char (&work)[work_size]) {
    int position = 0;
    int sign = 0;
    const char* digits = _fcvt(value, places, &position, &sign);
    std::size_t digit_count = std::strlen(digits);
    CUT_TEXT text(work);
    if (sign != 0) text.append("-", 1);
    if (!std::isfinite(value)) {
        text.append(digits, digit_count);
    } else if (position > 0) {
        std::size_t whole = std::min(digit_count, static_cast<std::size_t>(position));
        text.append(digits, whole);
        text.append(".", 1);
        text.append(digits + whole, digit_count - whole);
    } else {
        text.append("0.", 2);
        text.fill('0', std::min(-position, places));
        text.append(digits, digit_count);
    }
    return text.length();
}

FIELD convert_float(char type, CONVERSION& conversion, char (&work)[work_size], va_list args) {
    FIELD field;
    double value = va_arg(args, double);
    int places = conversion.precision < 0 ? default_places : conversion.precision;
    if (type == 'g' && places == 0) places = 1;
    field.text = work;
    field.length = make_float_text(value, places, work);
    bool negative = work[0] == '-';
    if (negative) {
        ++field.text;
        --field.length;
    }
    add_sign(field, conversion, negative);
    // Zeros in front of "inf" would make it look like a number.
    if (!std::isfinite(value)) conversion.zero_fill = false;
    return field;
}

// The upper-case types are wide when no size says otherwise.
bool is_wide_text(bool upper_case, const CONVERSION& conversion) {
    return conversion.is_long || conversion.is_wide || (upper_case && !conversion.is_short);
}

FIELD convert_character(bool upper_case, const CONVERSION& conversion, char (&work)[work_size],
                        va_list args) {
    FIELD field;
    field.text = work;
    if (is_wide_text(upper_case, conversion)) {
        int size = _wctomb(work, static_cast<wchar_t>(va_arg(args, wint_t)));
        field.suppressed = size < 0;
        field.length = static_cast<std::size_t>(std::max(size, 0));
    } else {
        work[0] = static_cast<char>(va_arg(args, int));
        field.length = 1;
    }
    return field;
}

FIELD convert_string(bool upper_case, const CONVERSION& conversion, va_list args) {
    FIELD field;
    // No more characters are looked at than the precision allows: the text may end there without a
    // terminator.
    std::size_t most =
        conversion.precision < 0 ? PTRDIFF_MAX : static_cast<std::size_t>(conversion.precision);
    if (is_wide_text(upper_case, conversion)) {
        const auto* text = va_arg(args, const wchar_t*);
        field.wide_text = text ? text : null_wide_text;
        while (field.length < most && field.wide_text[field.length] != L'\0') ++field.length;
    } else {
        const auto* text = va_arg(args, const char*);
        field.text = text ? text : null_text;
        field.length = strnlen(field.text, most);
    }
    return field;
}

FIELD convert_counted_string(const CONVERSION& conversion, va_list args) {
    FIELD field;
    const auto* record = va_arg(args, const STL_COUNTED_STRING*);
    if (!record || !record->characters) {
        field.text = null_text;
        field.length = std::strlen(null_text);
    } else if (conversion.is_wide) {
        field.wide_text = reinterpret_cast<const wchar_t*>(record->characters);
        field.length = record->length / sizeof(wchar_t);
    } else {
        field.text = record->characters;
        field.length = record->length;
    }
    return field;
}

FIELD store_count(const CONVERSION& conversion, int count_so_far, va_list args) {
    FIELD field;
    field.suppressed = true;
    void* target = va_arg(args, void*);
    if (!target) return field;
    if (conversion.is_short && !conversion.is_long)
        *static_cast<short*>(target) = static_cast<short>(count_so_far);
    else
        *static_cast<int*>(target) = count_so_far;
    return field;
}

}  // namespace

FIELD convert(char type, CONVERSION& conversion, int count_so_far, char (&work)[work_size], va_list args) {
    FIELD field;
    switch (type) {
        case 'd':
        case 'i':
            return convert_signed(conversion, work, args);
        case 'u':
            set_digits(field, conversion, take_unsigned(conversion, args), 10, work);
            return field;
        case 'o':
            return convert_octal(conversion, work, args);
        case 'x':
        case 'X':
            return convert_hexadecimal(conversion, take_unsigned(conversion, args), type == 'X', work);
        case 'p':
            return convert_pointer(conversion, work, args);
        case 'c':
        case 'C':
            return convert_character(type == 'C', conversion, work, args);
        case 's':
        case 'S':
            return convert_string(type == 'S', conversion, args);
        case 'Z':
            return convert_counted_string(conversion, args);
        case 'n':
            return store_count(conversion, count_so_far, args);
        case 'f':
        case 'e':
        case 'g':
        case 'E':
        case 'G':
            return convert_float(type, conversion, work, args);
        default:  // B: an empty text, and no argument
            return field;
    }
}

}  // namespace STL_FORMAT
