#include "tools/memrun/path_search.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "tools/memrun/failure.h"

namespace memrun {

namespace {

// 0 when the file can be executed, else the reason.
int why_not_executable(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    return access(path.c_str(), X_OK) == 0 ? 0 : errno;
}

[[noreturn]] void fail(const std::string& name, int reason) {
    const bool missing = reason == ENOENT || reason == ENOTDIR;
    throw Failure(missing ? status_not_found : status_cannot_run,
                  "cannot run '" + name + "': " + std::strerror(reason));
}

}  // namespace

std::string find_in_path(const std::string& name) {
    if (name.find('/') != std::string::npos || name.empty()) {
        if (const int reason = why_not_executable(name)) fail(name, reason);
        return name;
    }
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/bin:/usr/bin");
    int reason = ENOENT;
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
        const int why = why_not_executable(candidate);
        if (why == 0) return candidate;
        if (why == EACCES) reason = why;
    }
    if (reason == ENOENT)
        throw Failure(status_not_found, "'" + name + "' is not found in any folder of PATH");
    fail(name, reason);
}

}  // namespace memrun
