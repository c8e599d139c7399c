#include "tools/memview/gzip.h"

#include <array>
#include <stdexcept>

namespace memview {

Gzip::Gzip(std::ostream& out) : out_(out) {
    constexpr int gzip_window = MAX_WBITS + 16;  // zlib's way to ask for a gzip header
    if (deflateInit2(&stream_, Z_BEST_SPEED, Z_DEFLATED, gzip_window, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("compression cannot start");
}

Gzip::~Gzip() {
    deflateEnd(&stream_);
}

void Gzip::write(std::string_view text) {
    // zlib takes its input as not constant, and leaves it alone.
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream_.avail_in = static_cast<uInt>(text.size());
    deflate_all(Z_NO_FLUSH);
}

void Gzip::deflate_all(int flush) {
    std::array<char, 65536> buffer;
    do {
        stream_.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream_.avail_out = buffer.size();
        if (deflate(&stream_, flush) == Z_STREAM_ERROR) throw std::runtime_error("compression failed");
        out_.write(buffer.data(), static_cast<std::streamsize>(buffer.size() - stream_.avail_out));
    } while (stream_.avail_out == 0);
}

}  // namespace memview
