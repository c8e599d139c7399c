#include "tools/reports/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/reports/problems.h"

namespace memview {
namespace {

constexpr std::size_t first_buffer = std::size_t{256} << 10;
// A sample of 65,536 tags with numbers of 20 digits is a line of 1.4 MB.
constexpr std::size_t longest_line = std::size_t{64} << 20;

}  // namespace

// Without O_NONBLOCK a pipe of a report's name would hold us for ever.
LineReader::LineReader(std::string path)
    : path_(std::move(path)),
      file_(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)),
      buffer_(first_buffer) {
    if (file_ < 0) throw ReportError({path_, 0, std::string("cannot be opened: ") + std::strerror(errno)});
    struct stat status {};
    if (::fstat(file_, &status) == 0 && S_ISREG(status.st_mode)) {
        file_size_ = static_cast<std::uint64_t>(status.st_size);
        ::posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
        return;
    }
    ::close(file_);
    throw ReportError({path_, 0, "is not a regular file"});
}

LineReader::~LineReader() {
    ::close(file_);
}

// Moves what is left to the front and reads behind it; false at the end of the file.
bool LineReader::fill() {
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (end_ == buffer_.size()) {
        if (end_ >= longest_line)
            throw ReportError({path_, number_ + 1, "no line end within 64 MiB: not a report"});
        buffer_.resize(buffer_.size() * 2);
    }
    ssize_t got = 0;
    do {
        got = ::read(file_, buffer_.data() + end_, buffer_.size() - end_);
    } while (got < 0 && errno == EINTR);
    if (got < 0)
        throw ReportError({path_, number_ + 1, std::string("cannot be read: ") + std::strerror(errno)});
    end_ += static_cast<std::size_t>(got);
    return got > 0;
}

bool LineReader::next(std::string_view& line) {
    std::size_t searched = 0;
    for (;;) {
        const char* start = buffer_.data() + begin_;
        const std::size_t size = end_ - begin_;
        const void* found = size > searched ? std::memchr(start + searched, '\n', size - searched) : nullptr;
        terminated_ = found != nullptr;
        if (terminated_) {
            line = {start, static_cast<std::size_t>(static_cast<const char*>(found) - start)};
            begin_ += line.size() + 1;
            break;
        }
        searched = size;
        if (fill()) continue;
        if (size == 0) return false;
        line = {buffer_.data() + begin_, size};
        begin_ = end_;
        break;
    }
    ++number_;
    given_ += line.size() + 1;
    return true;
}

std::size_t LineReader::lines_ahead() const {
    if (number_ == 0 || given_ >= file_size_) return 0;
    return static_cast<std::size_t>((file_size_ - given_) / (given_ / number_));
}

}  // namespace memview
