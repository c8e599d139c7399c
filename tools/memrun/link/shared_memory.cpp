#include "tools/memrun/link/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace memrun::link {

namespace {

// The limit on files counts for this memory, too, and who goes beyond it gets a signal.
bool is_allowed(std::size_t size) {
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && size <= limit.rlim_cur;
}

}  // namespace

int make_shared_memory(const char* name, std::size_t size) {
    if (!is_allowed(size)) return -1;
    const int fd = memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return -1;
    if (ftruncate(fd, static_cast<off_t>(size)) == 0 &&
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_SEAL) == 0)
        return fd;
    close(fd);
    return -1;
}

std::size_t shared_size(int fd) {
    struct stat status;
    const int seals = fcntl(fd, F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(fd, &status) != 0) return 0;
    return static_cast<std::size_t>(status.st_size);
}

void* map_shared_memory(int fd, std::size_t size) {
    if (shared_size(fd) < size) return nullptr;
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

}  // namespace memrun::link
