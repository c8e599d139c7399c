#include "platform/mapped_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/kept_errno.h"

namespace {

void* unless_failed(void* memory) {
    return memory == MAP_FAILED ? nullptr : memory;
}

// The limit on files counts for shared memory, too, and who goes beyond it gets a signal.
bool may_be_a_file(std::size_t bytes) {
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && bytes <= limit.rlim_cur;
}

void* map_shared(int descriptor, std::size_t bytes, int protection) {
    const KEPT_ERRNO errno_is_kept;
    struct stat status;
    const int seals = fcntl(descriptor, F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(descriptor, &status) != 0) return nullptr;
    if (static_cast<std::size_t>(status.st_size) < bytes) return nullptr;
    return unless_failed(mmap(nullptr, bytes, protection, MAP_SHARED, descriptor, 0));
}

}  // namespace

void* map_memory(std::size_t bytes) {
    const KEPT_ERRNO errno_is_kept;
    return unless_failed(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

void unmap_memory(void* memory, std::size_t bytes) {
    const KEPT_ERRNO errno_is_kept;
    munmap(memory, bytes);
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

void* map_shared_memory(int descriptor, std::size_t bytes) {
    return map_shared(descriptor, bytes, PROT_READ | PROT_WRITE);
}

const void* map_shared_memory_to_read(int descriptor, std::size_t bytes) {
    return map_shared(descriptor, bytes, PROT_READ);
}

// A second mapping of the part, long enough to reach behind it, of which the first part is given back.
void* map_shared_memory_behind(void* mapped, std::size_t bytes, std::size_t more) {
    const KEPT_ERRNO errno_is_kept;
    void* twice = unless_failed(mremap(mapped, 0, bytes + more, MREMAP_MAYMOVE));
    if (twice == nullptr) return nullptr;
    munmap(twice, bytes);
    return static_cast<std::byte*>(twice) + bytes;
}
