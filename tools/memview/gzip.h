#pragma once

#include <zlib.h>

#include <ostream>
#include <string_view>

namespace memview {

// Compresses what is written to it into a gzip file.
class Gzip {
  public:
    explicit Gzip(std::ostream& out);
    ~Gzip();
    Gzip(const Gzip&) = delete;
    Gzip& operator=(const Gzip&) = delete;

    void write(std::string_view text);
    // Once, behind the last text.
    void finish() { deflate_all(Z_FINISH); }

  private:
    void deflate_all(int flush);

    std::ostream& out_;
    z_stream stream_{};
};

}  // namespace memview
