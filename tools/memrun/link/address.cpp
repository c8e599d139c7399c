#include "tools/memrun/link/address.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace memrun::link {

FolderAddress::FolderAddress(const char* folder, const char* name) {
    address_.sun_family = AF_UNIX;
    const int length = std::snprintf(address_.sun_path, sizeof address_.sun_path, "%s/%s", folder, name);
    is_valid_ = length > 0 && static_cast<std::size_t>(length) < sizeof address_.sun_path;
    if (is_valid_) return;
    folder_ = open(folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
    std::snprintf(address_.sun_path, sizeof address_.sun_path, "/proc/self/fd/%d/%s", folder_, name);
    is_valid_ = folder_ >= 0;
}

FolderAddress::~FolderAddress() {
    if (folder_ >= 0) close(folder_);
}

}  // namespace memrun::link
