// stl_output: reads a format through the state machine and writes what each new state asks for.
#include <climits>

#include "ktl_mem/format.h"
#include "stl_format/field.h"
#include "stl_format/format_state.h"

namespace {

using namespace STL_FORMAT;

// Width and precision stay at the largest int when they would pass it. A precision that an argument made
// negative, so that none is given, stays as it is.
void append_digit(int& number, char digit) {
    if (number < 0) return;
    int value = digit - '0';
    number = number > (INT_MAX - value) / 10 ? INT_MAX : number * 10 + value;
}

void set_flag(CONVERSION& conversion, char flag) {
    switch (flag) {
        case '-':
            conversion.left_justify = true;
            break;
        case '+':
            conversion.always_sign = true;
            break;
        case ' ':
            conversion.sign_blank = true;
            break;
        case '#':
            conversion.alternate = true;
            break;
        default:
            conversion.zero_fill = true;
    }
}

void take_width(CONVERSION& conversion, va_list args) {
    int width = va_arg(args, int);
    if (width < 0) conversion.left_justify = true;
    conversion.width = width == INT_MIN ? INT_MAX : width < 0 ? -width : width;
}

void take_precision(CONVERSION& conversion, va_list args) {
    int precision = va_arg(args, int);
    conversion.precision = precision < 0 ? -1 : precision;
}

class FORMATTER {
  public:
    FORMATTER(std::string* target, const char* format) : out(target), next(format) {}

    int run(va_list args) {
        while (*next != '\0' && !out.is_past_limit()) {
            if (state == STATE_NORMAL || state == STATE_TYPE) copy_plain_text();
            if (*next == '\0') break;
            char character = *next++;
            state = next_state(state, character);
            act(character, args);
        }
        out.flush();
        return out.count();
    }

  private:
    // Outside a conversion every character but a percent sign leads to the normal state, which writes it.
    void copy_plain_text() {
        const char* begin = next;
        while (*next != '\0' && *next != '%') ++next;
        out.put(begin, static_cast<std::size_t>(next - begin));
    }

    void act(char character, va_list args) {
        switch (state) {
            case STATE_PERCENT:
                conversion = CONVERSION{};
                break;
            case STATE_FLAG:
                set_flag(conversion, character);
                break;
            case STATE_WIDTH:
                if (character == '*')
                    take_width(conversion, args);
                else
                    append_digit(conversion.width, character);
                break;
            case STATE_DOT:
                conversion.precision = 0;
                break;
            case STATE_PRECISION:
                if (character == '*')
                    take_precision(conversion, args);
                else
                    append_digit(conversion.precision, character);
                break;
            case STATE_SIZE:
                set_size(character);
                break;
            case STATE_TYPE:
                write_conversion(character, args);
                break;
            default:
                out.put(character);
        }
    }

    void set_size(char size) {
        switch (size) {
            case 'h':
                conversion.is_short = true;
                break;
            case 'w':
                conversion.is_wide = true;
                break;
            case 'l':
                if (*next == 'l') {
                    ++next;
                    conversion.is_64_bits = true;
                } else {
                    conversion.is_long = true;
                }
                break;
            case 'I':
                set_size_of_64_bits();
                break;
            default:  // F, L and N change nothing
                break;
        }
    }

    void set_size_of_64_bits() {
        if (next[0] == '6' && next[1] == '4') {
            next += 2;
            conversion.is_64_bits = true;
        } else {
            state = STATE_NORMAL;
            out.put('I');
        }
    }

    void write_conversion(char type, va_list args) {
        char work[work_size];
        FIELD field = convert(type, conversion, out.count(), work, args);
        if (!field.suppressed) write_field(out, conversion, field);
    }

    STAGING_BUFFER out;
    const char* next;
    STATE state = STATE_NORMAL;
    CONVERSION conversion;
};

}  // namespace

int stl_output(std::string* out, const char* format, va_list args) {
    if (!out || !format) return 0;
    return FORMATTER(out, format).run(args);
}
