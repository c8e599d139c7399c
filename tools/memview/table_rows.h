#pragma once

// Rows of cells that tabs part, as every report with columns has them.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/memview/line_reader.h"
#include "tools/memview/model.h"

namespace memview {

// Reads the line of column names and gives the columns that are there. Throws ReportError when one is missing
// that is not the optional one (-1: none is), or when one is unknown.
std::vector<ColumnSpec> read_columns(LineReader& reader, const std::vector<ColumnSpec>& known,
                                     int optional_column);

class RowParser {
  public:
    RowParser(const LineReader& reader, std::vector<ColumnSpec> columns, Names& names)
        : m_reader(reader), m_columns(std::move(columns)), m_names(names), m_row(m_columns.size()) {}

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
