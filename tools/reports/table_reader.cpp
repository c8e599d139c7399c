#include "tools/reports/table_reader.h"

#include "tools/reports/fields.h"
#include "tools/reports/report_parts.h"
#include "tools/reports/table_rows.h"

namespace memview {
namespace {

void read_title(LineReader& reader, const TableKind& kind, std::optional<std::uint64_t>& peak_index) {
    std::string rest = read_head(reader, kind.report.title);
    if (!kind.indexed && rest.empty()) return;
    std::uint64_t index = 0;
    const std::string_view before = " [at index ";
    if (!kind.indexed || !rest.starts_with(before) || !rest.ends_with("]") ||
        !parse_number(std::string_view(rest).substr(before.size(), rest.size() - before.size() - 1), index)) {
        throw ReportError({reader.path(), 1, "unexpected title " + in_quotes(kind.report.title + rest)});
    }
    peak_index = index;
}

}  // namespace

Table read_table(const std::string& path, const TableKind& kind, Names& names, Problems& problems,
                 std::optional<std::uint64_t>& peak_index) {
    LineReader reader(path);
    read_title(reader, kind, peak_index);
    const std::vector<ColumnSpec> columns = read_columns(reader, kind.report.columns, kind.optional_column);
    Table table = empty_table(kind.key, path, columns);
    RowParser parser(reader, columns, names);
    const auto read_row = [&](std::string_view line) {
        if (!parser.parse(line)) return false;
        add_row(reader, parser.row(), table);
        return true;
    };
    read_rows(reader, {read_row, [&](std::string_view line) { return parser.fault_of(line); }},
              kind.closing_line, problems);
    return table;
}

}  // namespace memview
