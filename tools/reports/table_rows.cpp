#include "tools/reports/table_rows.h"

#include <algorithm>

#include "tools/reports/fields.h"

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

// The call site of a path; "-" where none is.
bool parse_site(std::string_view text, std::int64_t& value) {
    if (text != "-") return parse_address(text, value);
    value = no_site;
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
        case Unit::site:
            return fields.next(text) && parse_site(text, value);
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

}  // namespace

std::vector<ColumnSpec> read_columns(LineReader& reader, std::span<const ColumnSpec> known,
                                     int optional_column) {
    std::vector<ColumnSpec> columns;
    Fields fields(read_column_line(reader));
    std::string_view title;
    bool more = fields.next(title);
    for (std::size_t i = 0; i < known.size(); ++i) {
        if (more && title == known[i].title) {
            columns.push_back(known[i]);
            more = fields.next(title);
        } else if (static_cast<int>(i) != optional_column) {
            throw ReportError({reader.path(), reader.number(),
                               "column " + in_quotes(known[i].title) + " expected, found " +
                                   (more ? in_quotes(title) : std::string("the end of the line"))});
        }
    }
    if (more) throw ReportError({reader.path(), reader.number(), "unknown column " + in_quotes(title)});
    return columns;
}

void hold_against(const LineReader& reader, std::string_view line, std::span<const ColumnSpec> columns) {
    Fields fields(line);
    const auto is_next = [&](const ColumnSpec& column) {
        std::string_view title;
        return fields.next(title) && title == column.title;
    };
    if (!std::ranges::all_of(columns, is_next) || !fields.at_end())
        throw ReportError({reader.path(), reader.number(), "unknown columns " + in_quotes(line)});
}

bool RowParser::parse(std::string_view line) {
    Fields fields(line);
    for (std::size_t i = 0; i < row_.size(); ++i) {
        if (!parse_cell(fields, columns_[i].unit, names_, row_[i])) return false;
    }
    return fields.at_end() && reader_.terminated() && line.find('\0') == std::string_view::npos;
}

std::string RowParser::fault_of(std::string_view line) {
    const std::size_t found = Fields(line).rest();
    if (found != row_.size()) return wrong_field_count(reader_, line, found, row_.size());
    if (!reader_.terminated()) return "the file is cut inside this row";
    Fields fields(line);
    for (const ColumnSpec& column : columns_) {
        std::string_view field;
        fields.next(field);
        Fields alone(field);
        std::int64_t value = 0;
        const bool good =
            field.find('\0') == std::string_view::npos && parse_cell(alone, column.unit, names_, value);
        if (!good) return in_quotes(field) + " is no value for column " + in_quotes(column.title);
    }
    return {};
}

}  // namespace memview
