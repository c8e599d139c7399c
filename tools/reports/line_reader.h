#pragma once

// A text file line by line in bounded memory: one buffer, which grows only for a line longer than itself.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace memview {

class LineReader {
  public:
    // Throws ReportError when the path is no regular file or cannot be opened.
    explicit LineReader(std::string path);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line without its line feed, valid until the next call; false at the end of the file.
    // Throws ReportError on a failed read and on a line that no report can hold.
    bool next(std::string_view& line);

    const std::string& path() const { return path_; }
    std::uint64_t number() const { return number_; }  // of the line last given, from 1
    bool terminated() const { return terminated_; }   // whether that line had its line feed

    // Lines still to come, should they be as long as those so far.
    std::size_t lines_ahead() const;

  private:
    bool fill();

    std::string path_;
    int file_ = -1;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::uint64_t file_size_ = 0;
    std::uint64_t given_ = 0;  // bytes of the lines so far
    std::uint64_t number_ = 0;
    bool terminated_ = true;
};

}  // namespace memview
