// Formatting through the C library, for the conversions of printf as they are.
#include <cstdio>
#include <memory>

#include "ktl_mem/format.h"
#include "platform/c_runtime.h"

namespace {

constexpr std::size_t buffer_size = 8192;

int length_of(const char* format, va_list args) {
    va_list reading;
    va_copy(reading, args);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_copy is not seen to begin the list
    int length = std::vsnprintf(nullptr, 0, format, reading);
    va_end(reading);
    return length;
}

// For text that a buffer of the usual size does not hold.
void assign_long_text(std::string* out, const char* format, va_list args) {
    int length = length_of(format, args);
    if (length < 0) return;
    std::size_t size = static_cast<std::size_t>(length) + 1;
    std::unique_ptr<char[]> buffer(new char[size + 1]());
    length = _vsnprintf(buffer.get(), size, format, args);
    if (length >= 0) out->assign(buffer.get(), static_cast<std::size_t>(length));
}

}  // namespace

void stl_vsprintf(std::string* out, const char* format, va_list args) {
    if (!out || !format) return;
    char buffer[buffer_size];
    int length = _vsnprintf(buffer, buffer_size, format, args);
    if (length >= 0)
        out->assign(buffer, static_cast<std::size_t>(length));
    else
        assign_long_text(out, format, args);
}

void MEM_DETAIL::stl_raw_sprintf(std::string* out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    stl_vsprintf(out, format, args);
    va_end(args);
}
