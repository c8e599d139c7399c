#include "tools/memview/table_reader.h"

#include "tools/memview/fields.h"
#include "tools/memview/report_parts.h"

namespace memview {
namespace {

// "1.500" as 1500; the reports write MiB with exactly three digits behind the point.
bool parse_thousandths(std::string_view text, std::int64_t& value) {
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos || text.size() - point != 4 || point == 0) return false;
    std::int64_t whole = 0;
    std::uint32_t part = 0;
    const std::string_view digits = text.substr(0, point);
    if (!parse_number(text.substr(point + 1), part)) return false;
    if (digits != "-" && !parse_number(digits, whole)) return false;
    if (whole > INT64_MAX / 1000 - 1 || whole < INT64_MIN / 1000 + 1) return false;
    value = whole * 1000 + (text.front() == '-' ? -std::int64_t{part} : std::int64_t{part});
    return true;
}

bool parse_address(std::string_view text, std::int64_t& value) {
    value = 0;
    if (text == "OTHER") return true;
    std::uint64_t bits = 0;
    if (!text.starts_with("0x") || !parse_number(text.substr(2), bits, 16)) return false;
    value = static_cast<std::int64_t>(bits);
    return true;
}

bool parse_cell(Fields& fields, Unit unit, Names& names, std::int64_t& value) {
    std::string_view text;
    switch (unit) {
        case Unit::text:
            if (!fields.next(text)) return false;
            value = names.id_of(text);
            return true;
        case Unit::address:
            return fields.next(text) && parse_address(text, value);
        case Unit::thousandths:
            return fields.next(text) && parse_thousandths(text, value);
        case Unit::line:
            return fields.next_number(value) && value >= 0;
        case Unit::bytes:
        case Unit::blocks:
            return fields.next_number(value);
    }
    return false;
}

class TableReader {
  public:
    TableReader(const std::string& path, const TableKind& kind, Names& names, Problems& problems)
        : m_reader(path), m_kind(kind), m_names(names), m_problems(problems) {}

    Table read(std::optional<std::uint64_t>& peak_index) {
        m_table.key = m_kind.key;
        m_table.file = m_reader.path();
        read_title(peak_index);
        read_columns();
        const RowReader rows{[this](std::string_view line) { return read_row(line); },
                             [this](std::string_view line) { return fault_of(line); }};
        read_rows(m_reader, rows, m_kind.closing_line, m_problems);
        return std::move(m_table);
    }

  private:
    void read_title(std::optional<std::uint64_t>& peak_index) {
        std::string rest = read_head(m_reader, m_kind.title);
        if (!m_kind.indexed && rest.empty()) return;
        std::uint64_t index = 0;
        const std::string_view before = " [at index ";
        if (!m_kind.indexed || !rest.starts_with(before) || !rest.ends_with("]") ||
            !parse_number(std::string_view(rest).substr(before.size(), rest.size() - before.size() - 1),
                          index)) {
            throw ReportError({m_reader.path(), 1, "unexpected title " + in_quotes(m_kind.title + rest)});
        }
        peak_index = index;
    }

    void read_columns() {
        Fields fields(read_column_line(m_reader));
        std::string_view title;
        bool more = fields.next(title);
        for (std::size_t i = 0; i < m_kind.columns.size(); ++i) {
            const ColumnSpec& spec = m_kind.columns[i];
            if (more && title == spec.title) {
                m_table.columns.push_back({spec, {}});
                more = fields.next(title);
            } else if (static_cast<int>(i) != m_kind.optional_column) {
                throw ReportError({m_reader.path(), m_reader.number(),
                                   "column " + in_quotes(spec.title) + " expected, found " +
                                       (more ? in_quotes(title) : std::string("the end of the line"))});
            }
        }
        if (more)
            throw ReportError({m_reader.path(), m_reader.number(), "unknown column " + in_quotes(title)});
        m_row.resize(m_table.columns.size());
    }

    // A wrong row leaves nothing behind.
    bool read_row(std::string_view line) {
        Fields fields(line);
        for (std::size_t i = 0; i < m_row.size(); ++i) {
            if (!parse_cell(fields, m_table.columns[i].spec.unit, m_names, m_row[i])) return false;
        }
        if (!fields.at_end() || !m_reader.terminated() || line.find('\0') != std::string_view::npos)
            return false;
        add_row(m_reader, m_row, m_table);
        return true;
    }

    // What is wrong with a row that could not be read.
    std::string fault_of(std::string_view line) {
        const std::size_t found = Fields(line).rest();
        if (found != m_row.size()) return wrong_field_count(m_reader, line, found, m_row.size());
        if (!m_reader.terminated()) return "the file is cut inside this row";
        Fields fields(line);
        for (const Column& column : m_table.columns) {
            std::string_view field;
            fields.next(field);
            Fields alone(field);
            std::int64_t value = 0;
            const bool good = field.find('\0') == std::string_view::npos &&
                              parse_cell(alone, column.spec.unit, m_names, value);
            if (!good) return in_quotes(field) + " is no value for column " + in_quotes(column.spec.title);
        }
        return {};
    }

    LineReader m_reader;
    const TableKind& m_kind;
    Names& m_names;
    Problems& m_problems;
    Table m_table;
    std::vector<std::int64_t> m_row;
};

}  // namespace

Table read_table(const std::string& path, const TableKind& kind, Names& names, Problems& problems,
                 std::optional<std::uint64_t>& peak_index) {
    return TableReader(path, kind, names, problems).read(peak_index);
}

}  // namespace memview
