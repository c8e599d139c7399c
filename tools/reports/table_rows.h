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
        : m_reader(reader),
          m_columns(columns.begin(), columns.end()),
          m_names(names),
          m_row(m_columns.size()) {}

    // False for a wrong row.
    bool parse(std::string_view line);
    // The cells of the row that was parsed last.
    std::span<const std::int64_t> row() const { return m_row; }
    // What is wrong with a row that could not be parsed.
    std::string fault_of(std::string_view line);

  private:
    const LineReader& m_reader;
    std::vector<ColumnSpec> m_columns;
    Names& m_names;
    std::vector<std::int64_t> m_row;
};

}  // namespace memview
