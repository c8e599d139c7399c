#include "tools/memrun/control/whole_folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/memrun/figures.h"

namespace fs = std::filesystem;

namespace memrun::control {

namespace {

std::string failure(const std::string& target) {
    return "cannot make '" + target + "': " + std::strerror(errno);
}

// The folder was made for the program alone; from now on it is anybody's who may read the reports.
void open_to_readers(const std::string& folder) {
    const mode_t mask = umask(0);
    umask(mask);
    chmod(folder.c_str(), 0777 & ~mask);
}

}  // namespace

std::string cut_report(const std::string& folder) {
    return read_figures(folder, 0).cut_file;
}

std::string put_new_folder(const std::string& finished, const std::string& target) {
    std::error_code error;
    fs::create_directories(fs::path(target).parent_path(), error);
    open_to_readers(finished);
    if (renameat2(AT_FDCWD, finished.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return "";
    if (errno == EEXIST) return "'" + target + "' is there already: give another name";
    // The file system does not know this call; nobody else makes folders here.
    if (errno == EINVAL && !fs::exists(target) && std::rename(finished.c_str(), target.c_str()) == 0)
        return "";
    return failure(target);
}

std::string replace_folder(const std::string& finished, const std::string& target) {
    std::error_code ignored;
    if (!fs::exists(target, ignored)) return put_new_folder(finished, target);
    open_to_readers(finished);
    if (renameat2(AT_FDCWD, finished.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) return "";
    const std::string aside = finished + ".old";
    if (std::rename(target.c_str(), aside.c_str()) != 0 || std::rename(finished.c_str(), target.c_str()) != 0)
        return failure(target);
    fs::remove_all(aside, ignored);
    return "";
}

}  // namespace memrun::control
