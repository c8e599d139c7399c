#include "stl_format/field.h"

#include <climits>

#include "platform/c_runtime.h"

namespace STL_FORMAT {

namespace {

// Each character by itself; the first that the locale does not have ends the text.
void write_wide(STAGING_BUFFER& out, const wchar_t* text, std::size_t length) {
    char bytes[MB_LEN_MAX];
    for (std::size_t i = 0; i < length && !out.is_past_limit(); ++i) {
        int size = _wctomb(bytes, text[i]);
        if (size < 1) return;
        out.put(bytes, static_cast<std::size_t>(size));
    }
}

}  // namespace

void write_field(STAGING_BUFFER& out, const CONVERSION& conversion, const FIELD& field) {
    std::int64_t pad =
        conversion.width - (static_cast<std::int64_t>(field.length) + field.zeros + field.prefix_length);
    if (pad > 0 && !conversion.left_justify && !conversion.zero_fill) out.fill(' ', pad);
    for (int i = 0; i < field.prefix_length; ++i) out.put(field.prefix[i]);
    if (pad > 0 && !conversion.left_justify && conversion.zero_fill) out.fill('0', pad);
    if (field.zeros > 0) out.fill('0', field.zeros);
    if (field.wide_text)
        write_wide(out, field.wide_text, field.length);
    else
        out.put(field.text, field.length);
    if (pad > 0 && conversion.left_justify) out.fill(' ', pad);
}

}  // namespace STL_FORMAT
