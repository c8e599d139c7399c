#include "platform/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace {

constexpr int first_own_descriptor = 3;
constexpr int flags = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK;

int refuse(int file, int error) {
    close(file);
    errno = error;
    return -1;
}

// What is there already may have been put there for the process to spoil.
int open_known(const char* path) {
    const int file = open(path, flags);
    struct stat status {};
    if (file < 0) return -1;
    const bool is_ours = fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
                         status.st_nlink == 1;
    return is_ours ? file : refuse(file, EPERM);
}

// Holds the signal of the limit back from this thread, and takes what came of it.
class NO_FILE_SIZE_SIGNAL {
  public:
    NO_FILE_SIZE_SIGNAL() {
        sigemptyset(&signal);
        sigaddset(&signal, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal, &before);
    }
    ~NO_FILE_SIZE_SIGNAL() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    NO_FILE_SIZE_SIGNAL(const NO_FILE_SIZE_SIGNAL&) = delete;
    NO_FILE_SIZE_SIGNAL& operator=(const NO_FILE_SIZE_SIGNAL&) = delete;

    void take() const {
        const timespec now{};
        const int error = errno;
        sigtimedwait(&signal, nullptr, &now);
        errno = error;
    }

  private:
    sigset_t signal;
    sigset_t before;
};

}  // namespace

int above_standard_streams(int file) {
    if (file < 0 || file >= first_own_descriptor) return file;
    const int higher = fcntl(file, F_DUPFD_CLOEXEC, first_own_descriptor);
    const int error = errno;
    close(file);
    errno = error;
    return higher;
}

int open_output_file(const char* path, OUTPUT mode) {
    int file = open(path, flags | O_CREAT | O_EXCL, 0666);
    const bool is_known = file < 0 && errno == EEXIST;
    if (is_known) file = open_known(path);
    file = above_standard_streams(file);
    if (file < 0) return -1;
    if (mode == OUTPUT::APPENDED) {
        fcntl(file, F_SETFL, O_APPEND);
    } else if (is_known && ftruncate(file, 0) != 0) {
        // A new one is empty, and some file systems write what was once cut to the disk when it is closed.
        return refuse(file, errno);
    }
    return file;
}

void close_output_file(int file) {
    close(file);
}

bool write_output(int file, std::string_view text) {
    const NO_FILE_SIZE_SIGNAL meanwhile;
    while (!text.empty()) {
        const ssize_t wrote = write(file, text.data(), text.size());
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0 && errno == EFBIG) meanwhile.take();
        if (wrote <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(wrote));
    }
    return true;
}

OUTPUT_STREAM::BUFFER::BUFFER(const char* path) : file(open_output_file(path, OUTPUT::EMPTIED)) {
    setp(text, text + sizeof text);
}

OUTPUT_STREAM::BUFFER::~BUFFER() {
    if (file < 0) return;
    write_out();
    close(file);
}

OUTPUT_STREAM::BUFFER::int_type OUTPUT_STREAM::BUFFER::overflow(int_type next) {
    if (!write_out()) return traits_type::eof();
    if (traits_type::eq_int_type(next, traits_type::eof())) return traits_type::not_eof(next);
    return sputc(traits_type::to_char_type(next));
}

// A piece that is larger than the buffer goes past it.
std::streamsize OUTPUT_STREAM::BUFFER::xsputn(const char* piece, std::streamsize size) {
    if (size < static_cast<std::streamsize>(sizeof text)) return std::streambuf::xsputn(piece, size);
    return write_out() && write_behind({piece, static_cast<std::size_t>(size)}) ? size : 0;
}

bool OUTPUT_STREAM::BUFFER::write_out() {
    const std::string_view waiting(pbase(), static_cast<std::size_t>(pptr() - pbase()));
    setp(text, text + sizeof text);
    return waiting.empty() ? !is_cut : write_behind(waiting);
}

bool OUTPUT_STREAM::BUFFER::write_behind(std::string_view piece) {
    if (is_cut) return false;  // nothing goes on behind a gap
    is_cut = !write_output(file, piece);
    if (is_cut) cut_end_of_line(piece);
    written += piece.size();
    last = piece.back();
    return !is_cut;
}

void OUTPUT_STREAM::BUFFER::cut_end_of_line(std::string_view failed) const {
    struct stat status {};
    if (fstat(file, &status) != 0 || status.st_size == 0) return;
    const std::size_t arrived = static_cast<std::size_t>(status.st_size) - written;
    const char at_end = arrived == 0 || arrived > failed.size() ? last : failed[arrived - 1];
    if (at_end == '\n' && ftruncate(file, status.st_size - 1) != 0) return;
}
