#pragma once

// Known leaks that a check is not to count, in the form that LeakSanitizer reads: a line "leak:PATTERN" for
// each.

#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

class Suppressions {
  public:
    // Throws ReportError for a file that cannot be read and for a line of another form.
    static Suppressions read(const std::string& path);

    // Whether the row's module, function or file matches a pattern.
    bool covers(const Table& leaks, std::size_t row, const Names& names);
    // Whether the text does.
    bool covers(std::string_view text);

    // The patterns that covered nothing; they may be out of date.
    std::vector<std::string> unused() const;

  private:
    struct Entry {
        std::string pattern;
        bool used = false;
    };
    std::vector<Entry> entries_;
};

// A pattern may lie anywhere in the text; "*" stands for anything, "^" in front and "$" behind bind it to the
// ends.
bool matches_pattern(const std::string& pattern, std::string_view text);

}  // namespace memview
