#include "tools/memrun/agent/children.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>

#include "tools/memrun/agent/note.h"

namespace memrun::agent {

namespace {

// Memory may have run out by now, so nothing here allocates, as opendir() and streams would.
class Opened {
  public:
    Opened(int folder, const char* path, int flags)
        : fd_(openat(folder, path, flags | O_RDONLY | O_CLOEXEC)) {}
    ~Opened() {
        if (fd_ >= 0) close(fd_);
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    int fd() const { return fd_; }

  private:
    int fd_;
};

// Numbers with a blank behind each.
void note_numbers(const Orders& orders, int fd) {
    char text[512];
    int child = 0;
    for (ssize_t size = 0; (size = read(fd, text, sizeof text)) > 0;)
        for (ssize_t i = 0; i < size; ++i) {
            if (text[i] >= '0' && text[i] <= '9') {
                child = 10 * child + (text[i] - '0');
            } else if (child != 0) {
                append_note(orders, "child %d\n", child);
                child = 0;
            }
        }
}

void note_children_of(const Orders& orders, int threads, const char* thread) {
    char path[NAME_MAX + 16];
    std::snprintf(path, sizeof path, "%s/children", thread);
    const Opened children(threads, path, 0);
    if (children.fd() >= 0) note_numbers(orders, children.fd());
}

// Most programs end without any; then /proc need not be searched.
bool has_children() {
    siginfo_t any;
    return syscall(SYS_waitid, P_ALL, 0, &any, WEXITED | WNOHANG | WNOWAIT | __WALL, nullptr) == 0 ||
           errno != ECHILD;
}

}  // namespace

// A child belongs to the thread that forked it.
void note_children(const Orders& orders) {
    if (!has_children()) return;
    const Opened threads(AT_FDCWD, "/proc/self/task", O_DIRECTORY);
    alignas(dirent64) char entries[2048];
    for (long size = 0; (size = syscall(SYS_getdents64, threads.fd(), entries, sizeof entries)) > 0;)
        for (const char* at = entries; at < entries + size;) {
            const auto& entry = *reinterpret_cast<const dirent64*>(at);
            if (entry.d_name[0] != '.') note_children_of(orders, threads.fd(), entry.d_name);
            at += entry.d_reclen;
        }
}

}  // namespace memrun::agent
