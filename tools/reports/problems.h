#pragma once

// What was wrong with the input, always as file, line and reason.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace memview {

struct Problem {
    std::string file;
    std::uint64_t line = 0;  // 0: the file or folder as a whole
    std::string reason;
};

// "FILE:LINE: REASON", or "FILE: REASON".
std::string to_text(const Problem& problem);

// Text from a report made fit for a message: short, on one line, nothing that a terminal would obey.
std::string in_quotes(std::string_view text);

// The file (or the whole request) cannot be used. With --keep-going the reader of folders drops that file.
class ReportError : public std::runtime_error {
  public:
    explicit ReportError(Problem problem);
    const Problem& problem() const { return problem_; }

  private:
    Problem problem_;
};

// Takes what a reader leaves out. Strict, the first one ends the reading; with keep-going they are counted
// and the first hundred kept, and whoever shows a result must show them too.
class Problems {
  public:
    explicit Problems(bool keep_going) : keep_going_(keep_going) {}

    // Throws ReportError unless keep-going.
    void add(Problem problem);
    bool keep_going() const { return keep_going_; }
    const std::vector<Problem>& kept() const { return kept_; }
    std::uint64_t count() const { return count_; }

    // One line each, and one for those that were not kept.
    std::vector<std::string> lines() const;

  private:
    bool keep_going_;
    std::uint64_t count_ = 0;
    std::vector<Problem> kept_;
};

}  // namespace memview
