#include "tools/memview/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/memview/fields.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

constexpr const char* GAP = "  ";

// Empty when the variable is not set.
std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

Terminal standard_terminal() {
    Terminal terminal;
    const bool is_terminal = ::isatty(STDOUT_FILENO) == 1;
    terminal.colour = is_terminal && environment("NO_COLOR").empty();
    if (!is_terminal) terminal.width = 0;
    winsize size{};
    if (is_terminal && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        terminal.width = size.ws_col;
    std::size_t columns = 0;
    if (parse_number(environment("COLUMNS"), columns)) terminal.width = columns;
    return terminal;
}

std::string bold(const std::string& text, const Terminal& terminal) {
    return terminal.colour ? "\033[1m" + text + "\033[0m" : text;
}

std::size_t TextTable::column_width(std::size_t column) const {
    std::size_t width = display_width(m_headings[column].title);
    for (const std::vector<std::string>& row : m_rows) width = std::max(width, display_width(row[column]));
    return width;
}

std::size_t TextTable::width_before(std::size_t first) const {
    std::size_t width = 2;
    for (std::size_t i = 0; i < first; ++i) width += column_width(i) + 2;
    return width;
}

void TextTable::print_row(std::ostream& out, const std::vector<std::string>& cells,
                          const std::vector<std::size_t>& widths) const {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string padding(widths[i] - display_width(cells[i]), ' ');
        line += GAP;
        line += m_headings[i].align == Align::left ? cells[i] + padding : padding + cells[i];
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << "\n";
}

void TextTable::print(std::ostream& out, const Terminal& terminal) const {
    std::vector<std::string> titles;
    std::vector<std::size_t> widths;
    for (const Heading& heading : m_headings) {
        widths.push_back(column_width(titles.size()));
        titles.push_back(heading.title);
    }
    if (terminal.colour) out << "\033[2m";
    print_row(out, titles, widths);
    if (terminal.colour) out << "\033[0m";
    for (const std::vector<std::string>& row : m_rows) print_row(out, row, widths);
}

}  // namespace memview
