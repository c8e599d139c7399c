#include "tools/memview/gzip.h"

#include <array>
#include <stdexcept>

namespace memview {

Gzip::Gzip(std::ostream& out) : m_out(out) {
    constexpr int GZIP_WINDOW = MAX_WBITS + 16;  // zlib's way to ask for a gzip header
    if (deflateInit2(&m_stream, Z_BEST_SPEED, Z_DEFLATED, GZIP_WINDOW, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("compression cannot start");
}

Gzip::~Gzip() {
    deflateEnd(&m_stream);
}

void Gzip::write(std::string_view text) {
    // zlib takes its input as not constant, and leaves it alone.
    m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    m_stream.avail_in = static_cast<uInt>(text.size());
    deflate_all(Z_NO_FLUSH);
}

void Gzip::deflate_all(int flush) {
    std::array<char, 65536> buffer;
    do {
        m_stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
        m_stream.avail_out = buffer.size();
        if (deflate(&m_stream, flush) == Z_STREAM_ERROR) throw std::runtime_error("compression failed");
        m_out.write(buffer.data(), static_cast<std::streamsize>(buffer.size() - m_stream.avail_out));
    } while (m_stream.avail_out == 0);
}

}  // namespace memview
