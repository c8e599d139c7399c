#include "tools/reports/report_parts.h"

#include "tools/common/closing_line.h"
#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

constexpr std::size_t rows_to_estimate_by = 1000;

void read_end(LineReader& reader, Problems& problems) {
    if (!reader.terminated())
        problems.add({reader.path(), reader.number(), "the file is cut in its closing line"});
    std::string_view line;
    if (!reader.next(line)) return;
    problems.add({reader.path(), reader.number(),
                  "text behind the closing line (two processes wrote this file?): " + in_quotes(line)});
}

}  // namespace

std::string read_head(LineReader& reader, std::string_view title) {
    std::string_view line;
    if (!reader.next(line)) throw ReportError({reader.path(), 0, "the file is empty"});
    if (!line.starts_with(title)) {
        throw ReportError({reader.path(), 1, "not this kind of report: it begins with " + in_quotes(line)});
    }
    std::string rest(line.substr(title.size()));
    if (!reader.next(line)) throw ReportError({reader.path(), 1, "the file is cut behind its title"});
    if (!line.empty())
        throw ReportError({reader.path(), 2, "an empty line expected, found " + in_quotes(line)});
    return rest;
}

std::string wrong_field_count(const LineReader& reader, std::string_view line, std::size_t found,
                              std::size_t expected) {
    if (!reader.terminated()) return "the file is cut inside this row";
    if (line.starts_with("MEM: ") || line.starts_with("Memory Tracking - ")) {
        return "a second report begins here: two processes wrote this file";
    }
    std::string text = std::to_string(expected) + " fields expected, found " + std::to_string(found);
    if (found > expected) text += ": a name holds a tab";
    return text;
}

// Growing step by step would hold a large column twice; what is reserved too much is never touched.
void add_row(const LineReader& reader, std::span<const std::int64_t> row, Table& table) {
    if (table.rows == rows_to_estimate_by) {
        const std::size_t ahead = reader.lines_ahead();
        for (Column& column : table.columns) column.cells.reserve(table.rows + ahead + ahead / 8);
    }
    table.add_row(row);
}

std::string_view read_column_line(LineReader& reader) {
    std::string_view line;
    if (!reader.next(line))
        throw ReportError({reader.path(), reader.number(), "the file is cut: no columns"});
    return line;
}

void read_rows(LineReader& reader, const RowReader& rows, bool has_closing_line, Problems& problems) {
    for (std::string_view line; reader.next(line);) {
        if (has_closing_line && is_closing_line(line)) return read_end(reader, problems);
        if (!rows.read(line)) problems.add({reader.path(), reader.number(), rows.fault(line)});
    }
    if (has_closing_line)
        problems.add({reader.path(), reader.number(), "the file is cut: its closing line is missing"});
}

}  // namespace memview
