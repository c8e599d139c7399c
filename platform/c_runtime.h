// Calls of the native system's C runtime that the C library lacks or answers otherwise.
// Null arguments are not allowed unless a call says so. Safe from any thread.
#pragma once

#include <cstdarg>
#include <cstddef>

// Formats as vsnprintf does, with the older rule for the end: a text of exactly count characters fits and
// is not terminated, and a longer one gives -1 and leaves the buffer's content undefined. Else the length
// of the text; -1 also when the C library cannot format. The caller's `args` is not advanced.
// Allocates only for a text of exactly count characters, when count is above 8192.
int _vsnprintf(char* buffer, std::size_t count, const char* format, va_list args);

// The digits of |value|, rounded at `places` places behind the point, half to even on the exact value. No
// digit is a zero in front; 0 itself has `places` zeros. A value that rounds to nothing has no digits.
// decimal_position: where the point stands, counted from the first digit; 0 or less means zeros between
// point and digits. sign: 1 for a value with its sign set, else 0. Negative places count as 0.
// The result stays valid until the thread's next call. It holds at most 512 digits, the rest is cut off.
// A value that is no number or infinite gives "nan" or "inf" and decimal position 0.
const char* _fcvt(double value, int places, int* decimal_position, int* sign);

// Stores the bytes of a wide character, at most MB_LEN_MAX, without a terminator, and returns how many they
// are; -1 for a character that the locale does not have. As wctomb, with no state between calls.
int _wctomb(char* bytes, wchar_t character);
