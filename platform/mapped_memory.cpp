#include "platform/mapped_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "platform/kept_errno.h"

namespace {

constexpr std::size_t page_bytes = 4096;

// What map_memory gave out. The kernel has no name for these mappings, and may make one of them and the
// program's own.
struct RANGE {
    std::atomic<std::uintptr_t> begin{0};  // 0: free
    std::atomic<std::size_t> bytes{0};
};
constexpr std::size_t most_ranges = 4096;  // those beyond it are not counted
constinit RANGE ranges[most_ranges];
constinit std::atomic<std::size_t> ranges_used{0};  // the first ones

void note_range(void* memory, std::size_t bytes) {
    for (std::size_t i = 0; i < most_ranges; ++i) {
        std::uintptr_t none = 0;
        if (!ranges[i].begin.compare_exchange_strong(none, reinterpret_cast<std::uintptr_t>(memory)))
            continue;
        ranges[i].bytes = bytes;
        std::size_t used = ranges_used;
        while (used <= i && !ranges_used.compare_exchange_weak(used, i + 1)) {
        }
        return;
    }
}

void forget_range(const void* memory) {
    const auto from = reinterpret_cast<std::uintptr_t>(memory);
    for (std::size_t i = 0; i < ranges_used; ++i) {
        const std::uintptr_t begin = ranges[i].begin;
        if (begin == 0 || from - begin >= ranges[i].bytes) continue;
        ranges[i].bytes = from - begin;
        if (from == begin) ranges[i].begin = 0;
        return;
    }
}

std::size_t resident_in(std::uintptr_t begin, std::size_t bytes) {
    unsigned char pages[512];  // the stack may be small
    std::size_t resident = 0;
    for (std::size_t at = 0; at < bytes; at += sizeof pages * page_bytes) {
        const std::size_t part = std::min(bytes - at, sizeof pages * page_bytes);
        if (mincore(reinterpret_cast<void*>(begin + at), part, pages) != 0) continue;
        const unsigned char* const first = pages;
        const unsigned char* const end = first + (part + page_bytes - 1) / page_bytes;
        resident += static_cast<std::size_t>(
            std::count_if(first, end, [](unsigned char page) { return (page & 1) != 0; }));
    }
    return resident * page_bytes;
}

void* unless_failed(void* memory) {
    return memory == MAP_FAILED ? nullptr : memory;
}

// The limit on files counts for shared memory, too, and who goes beyond it gets a signal.
bool may_be_a_file(std::size_t bytes) {
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && bytes <= limit.rlim_cur;
}

void* map_shared(int descriptor, std::size_t bytes, int protection, std::size_t offset = 0) {
    const KEPT_ERRNO errno_is_kept;
    struct stat status;
    const int seals = fcntl(descriptor, F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(descriptor, &status) != 0) return nullptr;
    if (static_cast<std::size_t>(status.st_size) < offset + bytes) return nullptr;
    return unless_failed(
        mmap(nullptr, bytes, protection, MAP_SHARED, descriptor, static_cast<off_t>(offset)));
}

}  // namespace

void* map_memory(std::size_t bytes) {
    const KEPT_ERRNO errno_is_kept;
    void* memory =
        unless_failed(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (memory != nullptr) note_range(memory, bytes);
    return memory;
}

void* map_memory_to_fill(std::size_t bytes) {
    void* memory = map_memory(bytes);
    const KEPT_ERRNO errno_is_kept;
    if (memory != nullptr) madvise(memory, bytes, MADV_POPULATE_WRITE);
    return memory;
}

void unmap_memory(void* memory, std::size_t bytes) {
    const KEPT_ERRNO errno_is_kept;
    forget_range(memory);  // first, since others may be given the same addresses behind it
    munmap(memory, bytes);
}

std::size_t resident_mapped_memory() {
    const KEPT_ERRNO errno_is_kept;
    std::size_t resident = 0;
    for (std::size_t i = 0; i < ranges_used; ++i)
        if (const std::uintptr_t begin = ranges[i].begin; begin != 0)
            resident += resident_in(begin, ranges[i].bytes);
    return resident;
}

int make_shared_memory(const char* name, std::size_t bytes) {
    const KEPT_ERRNO errno_is_kept;
    if (!may_be_a_file(bytes)) return -1;
    const int descriptor = memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (descriptor < 0) return -1;
    if (ftruncate(descriptor, static_cast<off_t>(bytes)) == 0 &&
        fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_SEAL) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

void close_shared_memory(int descriptor) {
    const KEPT_ERRNO errno_is_kept;
    close(descriptor);
}

void* map_shared_memory(int descriptor, std::size_t bytes, std::size_t offset) {
    return map_shared(descriptor, bytes, PROT_READ | PROT_WRITE, offset);
}

const void* map_shared_memory_to_read(int descriptor, std::size_t bytes) {
    return map_shared(descriptor, bytes, PROT_READ);
}

bool write_shared_memory(int descriptor, std::size_t offset, const void* part, std::size_t bytes) {
    const KEPT_ERRNO errno_is_kept;
    const char* from = static_cast<const char*>(part);
    while (bytes > 0) {
        const ssize_t written = pwrite(descriptor, from, bytes, static_cast<off_t>(offset));
        if (written <= 0) return false;
        from += written;
        offset += static_cast<std::size_t>(written);
        bytes -= static_cast<std::size_t>(written);
    }
    return true;
}

bool replace_by_shared_memory(void* part, std::size_t bytes, int descriptor, std::size_t offset) {
    const KEPT_ERRNO errno_is_kept;
    return unless_failed(mmap(part, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, descriptor,
                              static_cast<off_t>(offset))) != nullptr;
}

// A second mapping of the part, long enough to reach behind it, of which the first part is given back.
void* map_shared_memory_behind(void* mapped, std::size_t bytes, std::size_t more) {
    const KEPT_ERRNO errno_is_kept;
    void* twice = unless_failed(mremap(mapped, 0, bytes + more, MREMAP_MAYMOVE));
    if (twice == nullptr) return nullptr;
    munmap(twice, bytes);
    return static_cast<std::byte*>(twice) + bytes;
}
