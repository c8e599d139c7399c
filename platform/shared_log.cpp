#include "platform/shared_log.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <ctime>

#include "platform/output_file.h"

namespace {

// For a second at most: a process that was stopped with the lock held must not keep others from ending. A
// block goes out in one write, so that it stays whole without the lock too.
void lock_with_patience(int file) {
    constexpr timespec turn{.tv_sec = 0, .tv_nsec = 10'000'000};
    for (int turns = 100; flock(file, LOCK_EX | LOCK_NB) != 0 && turns != 0; --turns)
        nanosleep(&turn, nullptr);
}

}  // namespace

void append_to_shared_log(const char* path, const std::string& head, const std::string& block) {
    const int file = open_output_file(path, OUTPUT::APPENDED);
    if (file < 0) return;
    lock_with_patience(file);
    struct stat status {};
    const bool is_new = fstat(file, &status) == 0 && status.st_size == 0;
    write_output(file, is_new ? head + block : block);
    close_output_file(file);
}
