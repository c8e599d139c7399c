#include "tools/reports/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/reports/problems.h"

namespace memview {
namespace {

constexpr std::size_t FIRST_BUFFER = std::size_t{256} << 10;
// A sample of 65,536 tags with numbers of 20 digits is a line of 1.4 MB.
constexpr std::size_t LONGEST_LINE = std::size_t{64} << 20;

}  // namespace

// Without O_NONBLOCK a pipe of a report's name would hold us for ever.
LineReader::LineReader(std::string path)
    : m_path(std::move(path)),
      m_file(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)),
      m_buffer(FIRST_BUFFER) {
    if (m_file < 0) throw ReportError({m_path, 0, std::string("cannot be opened: ") + std::strerror(errno)});
    struct stat status {};
    if (::fstat(m_file, &status) == 0 && S_ISREG(status.st_mode)) {
        m_file_size = static_cast<std::uint64_t>(status.st_size);
        ::posix_fadvise(m_file, 0, 0, POSIX_FADV_SEQUENTIAL);
        return;
    }
    ::close(m_file);
    throw ReportError({m_path, 0, "is not a regular file"});
}

LineReader::~LineReader() {
    ::close(m_file);
}

// Moves what is left to the front and reads behind it; false at the end of the file.
bool LineReader::fill() {
    if (m_begin > 0) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end == m_buffer.size()) {
        if (m_end >= LONGEST_LINE)
            throw ReportError({m_path, m_number + 1, "no line end within 64 MiB: not a report"});
        m_buffer.resize(m_buffer.size() * 2);
    }
    ssize_t got = 0;
    do {
        got = ::read(m_file, m_buffer.data() + m_end, m_buffer.size() - m_end);
    } while (got < 0 && errno == EINTR);
    if (got < 0)
        throw ReportError({m_path, m_number + 1, std::string("cannot be read: ") + std::strerror(errno)});
    m_end += static_cast<std::size_t>(got);
    return got > 0;
}

bool LineReader::next(std::string_view& line) {
    std::size_t searched = 0;
    for (;;) {
        const char* start = m_buffer.data() + m_begin;
        const std::size_t size = m_end - m_begin;
        const void* found = size > searched ? std::memchr(start + searched, '\n', size - searched) : nullptr;
        m_terminated = found != nullptr;
        if (m_terminated) {
            line = {start, static_cast<std::size_t>(static_cast<const char*>(found) - start)};
            m_begin += line.size() + 1;
            break;
        }
        searched = size;
        if (fill()) continue;
        if (size == 0) return false;
        line = {m_buffer.data() + m_begin, size};
        m_begin = m_end;
        break;
    }
    ++m_number;
    m_given += line.size() + 1;
    return true;
}

std::size_t LineReader::lines_ahead() const {
    if (m_number == 0 || m_given >= m_file_size) return 0;
    return static_cast<std::size_t>((m_file_size - m_given) / (m_given / m_number));
}

}  // namespace memview
