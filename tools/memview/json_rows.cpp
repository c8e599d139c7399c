#include "tools/memview/json_rows.h"

#include <algorithm>

#include "tools/memview/units.h"

namespace memview {
namespace {

// Names are nearly always printable ASCII with at most a quote; the rest is left to those who know it.
void append_text(std::string& out, std::string_view text) {
    const bool is_plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; });
    if (is_plain) {
        append_quoted(out, text, "\\\"");
    } else {
        out += json_text(std::string(text));
    }
}

void append_cell(std::string& out, const Column& column, std::size_t row, const Names& names) {
    const std::int64_t value = column.cells[row];
    out.append("\"").append(column.spec.key).append("\": ");
    if (column.spec.unit == Unit::text) {
        append_text(out, names.text(value));
    } else if (column.spec.unit == Unit::address || column.spec.unit == Unit::site) {
        append_text(out, hex_address(value));
    } else {
        append_number(out, value);
    }
}

}  // namespace

std::string json_text(const nlohmann::ordered_json& value) {
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void write_rows(const Table& table, const Names& names, std::ostream& out) {
    out << "\"" << table.key << "\": [";
    std::string line;
    for (std::size_t row = 0; row < table.rows; ++row) {
        line = row == 0 ? "\n{" : ",\n{";
        for (const Column& column : table.columns) {
            if (&column != &table.columns.front()) line += ", ";
            append_cell(line, column, row, names);
        }
        out << (line += '}');
    }
    out << "]";
}

}  // namespace memview
