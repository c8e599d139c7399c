#include "tools/memview/selection.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace memview {
namespace {

const Column* sort_column(const Table& table, const std::string& key) {
    const int index = table.column(key);
    if (index >= 0) return &table.columns[static_cast<std::size_t>(index)];
    for (const Column& column : table.columns) {
        if (column.spec.unit == Unit::bytes) return &column;
    }
    return nullptr;
}

// The texts of a row in the order of the columns, so that rows come by module, then file, then function.
bool texts_before(const Table& table, const Names& names, std::size_t left, std::size_t right) {
    for (const Column& column : table.columns) {
        if (column.spec.unit != Unit::text && column.spec.unit != Unit::line) continue;
        const std::int64_t a = column.cells[left];
        const std::int64_t b = column.cells[right];
        if (a == b) continue;
        return column.spec.unit == Unit::text ? names.text(a) < names.text(b) : a < b;
    }
    return false;
}

}  // namespace

Pattern::Pattern(const std::string& expression) : m_matches_all(expression.empty()) {
    const int error = ::regcomp(&m_compiled, expression.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error == 0) return;
    char reason[120];
    ::regerror(error, &m_compiled, reason, sizeof reason);
    throw CLI::ValidationError("--match",
                               "\"" + expression + "\" is no extended regular expression: " + reason);
}

Pattern::~Pattern() {
    ::regfree(&m_compiled);
}

bool Pattern::matches(const std::string& text) const {
    return m_matches_all || ::regexec(&m_compiled, text.c_str(), 0, nullptr, 0) == 0;
}

bool row_matches(const Table& table, std::size_t row, const Names& names, const Pattern& pattern) {
    return pattern.matches_all() ||
           std::any_of(table.columns.begin(), table.columns.end(), [&](const Column& column) {
               return column.spec.unit == Unit::text && pattern.matches(names.text(column.cells[row]));
           });
}

std::vector<std::size_t> selected_rows(const Table& table, const Names& names, const Pattern& pattern,
                                       const std::string& sort_key) {
    std::vector<std::size_t> rows;
    for (std::size_t row = 0; row < table.rows; ++row) {
        if (row_matches(table, row, names, pattern)) rows.push_back(row);
    }
    const Column* column = sort_key == "name" ? nullptr : sort_column(table, sort_key);
    std::stable_sort(rows.begin(), rows.end(), [&](std::size_t left, std::size_t right) {
        return column != nullptr ? column->cells[left] > column->cells[right]
                                 : texts_before(table, names, left, right);
    });
    return rows;
}

}  // namespace memview
