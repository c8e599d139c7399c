#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/fuzz/targets.h"

namespace fuzz {

MemoryFile::MemoryFile(Bytes bytes) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    const bool is_written =
        write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    require(is_written && lseek(descriptor_, 0, SEEK_SET) == 0, "the file is written");
    fcntl(descriptor_, F_ADD_SEALS, F_SEAL_SHRINK);
}

MemoryFile::~MemoryFile() {
    close(descriptor_);
}

void require(bool promise, const char* what) {
    if (promise) return;
    std::fprintf(stderr, "broken promise: %s\n", what);
    std::abort();
}

}  // namespace fuzz
