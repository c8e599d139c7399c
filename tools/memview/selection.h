#pragma once

// Which rows of a table are shown, and in which order.

#include <regex.h>

#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

// An extended regular expression of POSIX. (std::regex recurses by the length of its text, and names of
// templates can be longer than a stack is deep.)
class Pattern {
  public:
    // An empty expression matches everything. Throws CLI::ValidationError for a bad one.
    explicit Pattern(const std::string& expression);
    ~Pattern();
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    bool matches(std::string_view text) const;
    bool matches_all() const { return matches_all_; }

  private:
    bool matches_all_;
    regex_t compiled_{};
};

struct Selection {
    std::vector<std::uint32_t> rows;  // the first ones, in their order
    std::size_t matching = 0;         // how many there are in all
};

// The first `most` rows (0: all) of those that match, by the column from the highest down, or by the texts
// when the key is "name". A table without that column is sorted by its first column of bytes. Equal rows keep
// the order of the report.
Selection select_rows(const Table& table, const Names& names, const Pattern& pattern,
                      const std::string& sort_key, std::size_t most);

}  // namespace memview
