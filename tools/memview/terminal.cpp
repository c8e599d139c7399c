#include "tools/memview/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/memview/units.h"
#include "tools/reports/fields.h"

namespace memview {
namespace {

constexpr std::string_view gap = "  ";
constexpr std::size_t least_width = 8;  // of a column that is cut

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
    terminal.height = is_terminal ? size.ws_row : 0;
    std::size_t columns = 0;
    if (parse_number(environment("COLUMNS"), columns)) terminal.width = columns;
    return terminal;
}

std::string bold(const std::string& text, const Terminal& terminal) {
    return terminal.colour ? "\033[1m" + text + "\033[0m" : text;
}

std::size_t TextTable::column_width(std::size_t column) const {
    std::size_t width = display_width(headings_[column].title);
    for (const std::vector<std::string>& row : rows_) width = std::max(width, display_width(row[column]));
    return width;
}

// Columns that may be cut share what the others leave: the widest give way first.
std::vector<std::size_t> TextTable::fitting_widths(std::size_t width) const {
    std::vector<std::size_t> widths;
    std::size_t taken = 0;
    std::size_t widest = 0;
    for (std::size_t i = 0; i < headings_.size(); ++i) {
        widths.push_back(column_width(i));
        taken += widths.back() + gap.size();
        if (headings_[i].cut != Cut::never) widest = std::max(widest, widths.back());
    }
    for (; width != 0 && taken > width && widest > least_width; --widest) {
        for (std::size_t i = 0; i < widths.size() && taken > width; ++i) {
            if (headings_[i].cut == Cut::never || widths[i] < widest) continue;
            --widths[i];
            --taken;
        }
    }
    return widths;
}

std::string TextTable::row_text(const std::vector<std::string>& cells,
                                const std::vector<std::size_t>& widths) const {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const bool from_the_start = headings_[i].cut == Cut::start;
        const bool is_whole = headings_[i].cut == Cut::never;
        const std::string cell = is_whole         ? cells[i]
                                 : from_the_start ? shortened_path(cells[i], widths[i])
                                                  : shortened(cells[i], widths[i]);
        const std::string padding(widths[i] - std::min(widths[i], display_width(cell)), ' ');
        line += gap;
        line += headings_[i].align == Align::left ? cell + padding : padding + cell;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void TextTable::print(std::ostream& out, const Terminal& terminal) const {
    std::vector<std::string> titles;
    for (const Heading& heading : headings_) titles.push_back(heading.title);
    const std::vector<std::size_t> widths = fitting_widths(terminal.width);
    if (terminal.colour) out << "\033[2m";
    out << shortened(row_text(titles, widths), terminal.width) << "\n";
    if (terminal.colour) out << "\033[0m";
    for (const std::vector<std::string>& row : rows_)
        out << shortened(row_text(row, widths), terminal.width) << "\n";
}

}  // namespace memview
