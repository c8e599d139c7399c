// The error code of the calling thread's last failed call, and its text. Each thread has its own; no call
// here allocates. Codes are those of errno, but for the two named here.
#pragma once

#include <cstdint>

// What the symbol functions report: no module at that address, and no line there.
inline constexpr std::uint32_t ERROR_MOD_NOT_FOUND = 126;
inline constexpr std::uint32_t ERROR_INVALID_ADDRESS = 487;

// 0 until something failed on this thread. A call that succeeds leaves it as it was.
std::uint32_t GetLastError();
void SetLastError(std::uint32_t code);

inline constexpr std::uint32_t FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr std::uint32_t FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

// Stores a pointer to the English text of that errno code in *text and returns its length; an unknown code
// has a text too. Only the two flags above together are served, with any other the result is 0 and *text
// null. The text is constant and lives as long as the process; LocalFree takes it back all the same.
std::uint32_t FormatMessageA(std::uint32_t flags, const void* source, std::uint32_t code,
                             std::uint32_t language, const char** text, std::uint32_t minimum_size,
                             void* arguments);
void LocalFree(const void* text);
