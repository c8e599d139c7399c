#include "platform/symbols/own_memory.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace symbols {

bool read_own_memory(std::uint64_t address, void* target, std::size_t size) {
    const iovec local{.iov_base = target, .iov_len = size};
    const iovec remote{.iov_base = reinterpret_cast<void*>(address), .iov_len = size};
    const ssize_t got = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
    if (got >= 0 || errno == EFAULT) return got == static_cast<ssize_t>(size);
    // A sandbox forbids the call. The address comes from the loader's tables, so it is all but certainly
    // good.
    std::memcpy(target, reinterpret_cast<const void*>(address), size);
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
