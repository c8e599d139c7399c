#pragma once

// The terminal that standard output may be, and aligned tables for it.

#include <ostream>
#include <string>
#include <vector>

namespace memview {

struct Terminal {
    bool colour = false;
    std::size_t width = 120;  // 0: rows may be as long as they like
    std::size_t height = 0;   // 0: there may be as many rows as there are
};

// Of standard output. A pipe or file has no colour and no need to shorten.
Terminal standard_terminal();

class TextTable {
  public:
    enum class Align { left, right };
    // How a column gives way when a row would not fit the terminal.
    enum class Cut {
        never,
        end,
        start  // of paths, whose end says more
    };
    struct Heading {
        std::string title;
        Align align;
        Cut cut = Cut::never;
    };

    explicit TextTable(std::vector<Heading> headings) : headings_(std::move(headings)) {}

    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    // No row is wider than the terminal.
    void print(std::ostream& out, const Terminal& terminal) const;

  private:
    std::size_t column_width(std::size_t column) const;
    std::vector<std::size_t> fitting_widths(std::size_t width) const;
    std::string row_text(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const;

    std::vector<Heading> headings_;
    std::vector<std::vector<std::string>> rows_;
};

// Wraps a text in bold when the terminal has colour.
std::string bold(const std::string& text, const Terminal& terminal);

}  // namespace memview
