#include "platform/shared_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void write_all(int file, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = write(file, text.data() + done, text.size() - done);
        if (wrote <= 0) return;
        done += static_cast<std::size_t>(wrote);
    }
}

}  // namespace

void append_to_shared_log(const char* path, const std::string& head, const std::string& block) {
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0) return;
    flock(file, LOCK_EX);
    struct stat status {};
    const bool is_new = fstat(file, &status) == 0 && status.st_size == 0;
    write_all(file, is_new ? head + block : block);
    close(file);
}
