#include "tools/memrun/link/address.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace memrun::link {

FolderAddress::FolderAddress(const char* folder, const char* name)
    : folder_(open(folder, O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    address_.sun_family = AF_UNIX;
    std::snprintf(address_.sun_path, sizeof address_.sun_path, "/proc/self/fd/%d/%s", folder_, name);
}

FolderAddress::~FolderAddress() {
    if (folder_ >= 0) close(folder_);
}

}  // namespace memrun::link
