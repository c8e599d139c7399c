// Reading memory of this process that may be gone at any moment, such as the image of a library that
// another thread unloads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace symbols {

// Copies size bytes at address into target. False, and target undefined, when they cannot be read.
// Allocates nothing, takes no lock.
bool read_own_memory(std::uint64_t address, void* target, std::size_t size);

// Several pieces of it, one behind the other into target, in one system call. False when one of them cannot
// be read.
struct OWN_PIECE {
    std::uint64_t address;
    std::size_t size;
};
inline constexpr std::size_t most_own_pieces = 16;  // no more: the stack is the program's
bool read_own_pieces(std::span<const OWN_PIECE> pieces, void* target);

// The zero-terminated text at address, at most 4,095 characters of it; empty when it cannot be read.
std::string read_own_text(std::uint64_t address);

}  // namespace symbols
