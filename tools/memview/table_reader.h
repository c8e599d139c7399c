#pragma once

// Reads the reports that are one table.

#include "tools/memview/line_reader.h"
#include "tools/memview/model.h"
#include "tools/memview/report_kinds.h"

namespace memview {

// Throws ReportError when the head is wrong; bad rows and a missing end go to `problems`.
// `peak_index` is set when the title tells one.
Table read_table(const std::string& path, const TableKind& kind, Names& names, Problems& problems,
                 std::optional<std::uint64_t>& peak_index);

// Reads title and empty line of any report. Gives the title's text behind `title`.
std::string read_head(LineReader& reader, std::string_view title);

// What is wrong with a row that has `found` fields where `expected` are due.
std::string wrong_field_count(const LineReader& reader, std::string_view line, std::size_t found,
                              std::size_t expected);

// Adds the row, and makes room for all that are still to come once it is known how long they are.
void add_row(const LineReader& reader, std::span<const std::int64_t> row, Table& table);

// Checks that nothing stands behind the closing line.
void read_end(LineReader& reader, Problems& problems);

}  // namespace memview
