#pragma once

// What the readers of several reports share: the head, the rows in general and the end.

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "tools/reports/line_reader.h"
#include "tools/reports/model.h"

namespace memview {

// Reads title and empty line of any report. Gives the title's text behind `title`.
std::string read_head(LineReader& reader, std::string_view title);

// What is wrong with a row that has `found` fields where `expected` are due.
std::string wrong_field_count(const LineReader& reader, std::string_view line, std::size_t found,
                              std::size_t expected);

// Adds the row, and makes room for all that are still to come once it is known how long they are.
void add_row(const LineReader& reader, std::span<const std::int64_t> row, Table& table);

// How a report takes its rows.
struct RowReader {
    std::function<bool(std::string_view line)> read;          // false for a wrong row
    std::function<std::string(std::string_view line)> fault;  // what is wrong with it
};

// The line of column names, valid until the next line. Throws ReportError when the file ends before it.
std::string_view read_column_line(LineReader& reader);

// Reads all rows, and the closing line of a report that has one; behind that nothing may stand.
void read_rows(LineReader& reader, const RowReader& rows, bool has_closing_line, Problems& problems);

}  // namespace memview
