// MEM_REPORT_LINE: the text of one line of a report. Numbers are formed here and not by the stream, so that
// what a host has set on its stream (base, width, grouping of a locale) cannot change a report.
#pragma once

#include <charconv>
#include <concepts>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "mem/columns/report_columns.h"

class MEM_REPORT_LINE {
  public:
    MEM_REPORT_LINE() { line.reserve(usual_length); }

    MEM_REPORT_LINE& text(std::string_view more) {
        line += more;
        return *this;
    }
    // Tabs in between.
    MEM_REPORT_LINE& titles(std::span<const MEM_COLUMN> columns) {
        for (const MEM_COLUMN& column : columns)
            text(&column == columns.data() ? "" : "\t").text(column.title);
        return *this;
    }
    MEM_REPORT_LINE& number(std::integral auto value) { return append(value); }
    // As a stream writes a pointer.
    MEM_REPORT_LINE& address(std::uint64_t value) {
        line += "0x";
        return append(value, 16);
    }
    // Six significant digits, as a stream writes a float by default.
    MEM_REPORT_LINE& seconds(float value) { return append(value, std::chars_format::general, 6); }
    // Three digits behind the point.
    MEM_REPORT_LINE& mebibytes(std::int64_t bytes) {
        return append(static_cast<double>(bytes) * (1.0 / 1048576.0), std::chars_format::fixed, 3);
    }

    std::string take() { return std::exchange(line, {}); }

    // Writes the line with an end and, so that it is in the file at once, a flush; then begins anew.
    void end_row(std::ostream& out) {
        end_line(out);
        out.flush();
    }
    void end_line(std::ostream& out) {
        line += '\n';
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
        line.clear();
    }

  private:
    static constexpr std::size_t usual_length = 500;

    MEM_REPORT_LINE& append(auto... value_and_form) {
        char digits[64];
        const auto end = std::to_chars(digits, digits + sizeof digits, value_and_form...).ptr;
        line.append(digits, end);
        return *this;
    }

    std::string line;
};
