#include "platform/symbols/own_memory.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace symbols {

bool read_own_memory(std::uint64_t address, void* target, std::size_t size) {
    const OWN_PIECE whole{address, size};
    return read_own_pieces({&whole, 1}, target);
}

bool read_own_pieces(std::span<const OWN_PIECE> pieces, void* target) {
    std::array<iovec, most_own_pieces> remote;
    std::size_t count = 0;
    std::size_t size = 0;
    for (const OWN_PIECE& piece : pieces) {
        remote[count++] = {.iov_base = reinterpret_cast<void*>(piece.address), .iov_len = piece.size};
        size += piece.size;
    }
    const iovec local{.iov_base = target, .iov_len = size};
    const ssize_t got = process_vm_readv(getpid(), &local, 1, remote.data(), count, 0);
    if (got >= 0 || errno == EFAULT) return got == static_cast<ssize_t>(size);
    // A sandbox forbids the call. The addresses come from the loader's tables, so they are all but certainly
    // good.
    auto* to = static_cast<char*>(target);
    for (const OWN_PIECE& piece : pieces) {
        std::memcpy(to, reinterpret_cast<const void*>(piece.address), piece.size);
        to += piece.size;
    }
    return true;
}

std::string read_own_text(std::uint64_t address) {
    constexpr std::size_t page = 4096;
    std::string text;
    while (text.size() < page - 1) {
        char part[page];
        // Up to the end of a page: what follows may not be mapped.
        const std::size_t size = std::min(page - address % page, page - 1 - text.size());
        if (!read_own_memory(address, part, size)) return {};
        const std::size_t length = strnlen(part, size);
        text.append(part, length);
        if (length < size) break;
        address += size;
    }
    return text;
}

}  // namespace symbols
