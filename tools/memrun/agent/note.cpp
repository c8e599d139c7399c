#include "tools/memrun/agent/note.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/output_file.h"
#include "tools/memrun/contract.h"

namespace memrun::agent {

namespace {

int open_note(const Orders& orders, int flags) {
    char path[PATH_MAX + 2 * NAME_MAX];
    std::snprintf(path, sizeof path, "%s/%s/%s", orders.dir, notes_folder, orders.word);
    return above_standard_streams(open(path, O_WRONLY | O_APPEND | O_CLOEXEC | flags, 0666));
}

}  // namespace

void begin_note(Orders& orders) {
    const std::size_t length = std::strlen(orders.word);
    int fd = open_note(orders, O_CREAT | (orders.is_heir ? O_TRUNC : O_EXCL));
    for (int number = 2; fd < 0 && errno == EEXIST && number < 1000; ++number) {
        std::snprintf(orders.word + length, sizeof orders.word - length, ".%d", number);
        fd = open_note(orders, O_CREAT | O_EXCL);
    }
    if (fd >= 0) close(fd);
    append_note(orders, "program %s\n", orders.program);
    append_note(orders, "process %d\n", static_cast<int>(orders.owner));
}

bool append_note(const Orders& orders, const char* format, ...) {
    char line[PATH_MAX + 64];
    std::va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is not seen to begin the list
    const int size = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    const int fd = open_note(orders, 0);
    if (fd < 0) return false;
    write_output(fd, {line, std::min(static_cast<std::size_t>(size), sizeof line - 1)});
    close(fd);
    return true;
}

}  // namespace memrun::agent
