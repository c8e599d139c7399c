#include "tools/memview/gzip.h"

#include <zlib.h>

#include <stdexcept>

namespace memview {

std::string gzip(const std::string& text) {
    constexpr int GZIP_WINDOW = MAX_WBITS + 16;  // zlib's way to ask for a gzip header
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, GZIP_WINDOW, 8, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        throw std::runtime_error("compression cannot start");
    }
    std::string out(deflateBound(&stream, text.size()), '\0');
    std::string input = text;  // zlib takes its input as not constant
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END || input.size() > UINT32_MAX) throw std::runtime_error("compression failed");
    return out;
}

}  // namespace memview
