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

void write_note(int fd, const char* format, std::va_list args) {
    char text[PATH_MAX + 64];
    const int size = std::vsnprintf(text, sizeof text, format, args);
    write_output(fd, {text, std::min(static_cast<std::size_t>(size), sizeof text - 1)});
}

void write_note(int fd, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is not seen to begin the list
    write_note(fd, format, args);
    va_end(args);
}

}  // namespace

void begin_note(Orders& orders) {
    const std::size_t length = std::strlen(orders.word);
    int fd = open_note(orders, O_CREAT | (orders.is_heir ? O_TRUNC : O_EXCL));
    for (int number = 2; fd < 0 && errno == EEXIST && number < 1000; ++number) {
        std::snprintf(orders.word + length, sizeof orders.word - length, ".%d", number);
        fd = open_note(orders, O_CREAT | O_EXCL);
    }
    if (fd < 0) return;
    write_note(fd, "program %s\nprocess %d\n", orders.program, static_cast<int>(orders.owner));
    close(fd);
}

bool append_note(const Orders& orders, const char* format, ...) {
    const int fd = open_note(orders, 0);
    if (fd < 0) return false;
    std::va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is not seen to begin the list
    write_note(fd, format, args);
    va_end(args);
    close(fd);
    return true;
}

}  // namespace memrun::agent
