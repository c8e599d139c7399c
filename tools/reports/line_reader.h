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

    const std::string& path() const { return m_path; }
    std::uint64_t number() const { return m_number; }  // of the line last given, from 1
    bool terminated() const { return m_terminated; }   // whether that line had its line feed

    // Lines still to come, should they be as long as those so far.
    std::size_t lines_ahead() const;

  private:
    bool fill();

    std::string m_path;
    int m_file = -1;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    std::uint64_t m_file_size = 0;
    std::uint64_t m_given = 0;  // bytes of the lines so far
    std::uint64_t m_number = 0;
    bool m_terminated = true;
};

}  // namespace memview
