#include "platform/standard_streams.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace {

// Holds the stream's own lock, when it could be had in time.
class STREAM_LOCK {
  public:
    explicit STREAM_LOCK(std::FILE* locked) : stream(locked) {
        constexpr int turns = 100;
        constexpr timespec turn = {0, 1'000'000};
        for (int i = 0; i < turns && !held; ++i) {
            if (i != 0) nanosleep(&turn, nullptr);
            held = ftrylockfile(stream) == 0;
        }
    }
    ~STREAM_LOCK() {
        if (held) funlockfile(stream);
    }
    STREAM_LOCK(const STREAM_LOCK&) = delete;
    STREAM_LOCK& operator=(const STREAM_LOCK&) = delete;
    explicit operator bool() const { return held; }

  private:
    std::FILE* stream;
    bool held = false;
};

void write_to_descriptor(int descriptor, const char* text) {
    std::size_t left = std::strlen(text);
    while (left != 0) {
        const ssize_t written = write(descriptor, text, left);
        if (written < 0 && errno != EINTR) return;
        if (written < 0) continue;
        text += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace

int _fileno(std::FILE* stream) {
    return fileno(stream);
}

bool flush_without_hanging(std::FILE* stream) {
    const STREAM_LOCK lock(stream);
    if (lock) fflush_unlocked(stream);
    return static_cast<bool>(lock);
}

void write_without_hanging(std::FILE* stream, const char* text) {
    const STREAM_LOCK lock(stream);
    if (lock) {
        fputs_unlocked(text, stream);
        fflush_unlocked(stream);
    } else {
        write_to_descriptor(fileno(stream), text);
    }
}
