#pragma once

// Rows of cells that tabs part, as every report with columns has them.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/line_reader.h"
#include "tools/reports/model.h"
#include "tools/reports/report_parts.h"

namespace memview {

// Reads the line of column names and gives the columns that are there. Throws ReportError when one is missing
// that is not the optional one (-1: none is), or when one is unknown.
std::vector<ColumnSpec> read_columns(LineReader& reader, std::span<const ColumnSpec> known,
                                     int optional_column);

// Throws ReportError unless `line`, the one last read, names exactly these columns.
void hold_against(const LineReader& reader, std::string_view line, std::span<const ColumnSpec> columns);
inline void expect_columns(LineReader& reader, std::span<const ColumnSpec> columns) {
    hold_against(reader, read_column_line(reader), columns);
}

class RowParser {
  public:
    RowParser(const LineReader& reader, std::span<const ColumnSpec> columns, Names& names)
        : reader_(reader), columns_(columns.begin(), columns.end()), names_(names), row_(columns_.size()) {}

    // False for a wrong row.
    bool parse(std::string_view line);
    // The cells of the row that was parsed last.
    std::span<const std::int64_t> row() const { return row_; }
    // What is wrong with a row that could not be parsed.
    std::string fault_of(std::string_view line);

  private:
    const LineReader& reader_;
    std::vector<ColumnSpec> columns_;
    Names& names_;
    std::vector<std::int64_t> row_;
};

}  // namespace memview
