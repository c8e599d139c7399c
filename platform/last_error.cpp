#include "platform/last_error.h"

#include <cstring>

namespace {

constinit thread_local std::uint32_t last_error __attribute__((tls_model("initial-exec"))) = 0;

}  // namespace

std::uint32_t GetLastError() {
    return last_error;
}

void SetLastError(std::uint32_t code) {
    last_error = code;
}

// The C library's own constant text rather than a copy: this is called when memory has run out.
std::uint32_t FormatMessageA(std::uint32_t flags, const void* /*source*/, std::uint32_t code,
                             std::uint32_t /*language*/, const char** text, std::uint32_t /*minimum_size*/,
                             void* /*arguments*/) {
    *text = nullptr;
    if (flags != (FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM)) return 0;
    *text = strerrordesc_np(static_cast<int>(code));
    if (*text == nullptr) *text = "Unknown error";
    return static_cast<std::uint32_t>(std::strlen(*text));
}

void LocalFree(const void* /*text*/) {}
