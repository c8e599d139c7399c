#include "tools/memview/selection.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/reports/exact_peak.h"

namespace memview {
namespace {

const Column* sort_column(const Table& table, const std::string& key) {
    const int index = table.column(meant_column(table, key));
    if (index >= 0) return &table.columns[static_cast<std::size_t>(index)];
    for (const Column& column : table.columns) {
        if (column.spec.unit == Unit::bytes) return &column;
    }
    return nullptr;
}

// The texts of a row in the order of the columns, so that rows come by module, then file, then function.
bool texts_before(const Table& table, const Names& names, std::uint32_t left, std::uint32_t right) {
    for (const Column& column : table.columns) {
        if (column.spec.unit != Unit::text && column.spec.unit != Unit::line) continue;
        const std::int64_t a = column.cells[left];
        const std::int64_t b = column.cells[right];
        if (a == b) continue;
        return column.spec.unit == Unit::text ? names.text(a) < names.text(b) : a < b;
    }
    return left < right;
}

// Tests each name once, however many rows bear it.
class RowFilter {
  public:
    RowFilter(const Table& table, const Names& names, const Pattern& pattern)
        : names_(names), pattern_(pattern), verdicts_(pattern.matches_all() ? 0 : names.size()) {
        for (const Column& column : table.columns) {
            if (column.spec.unit == Unit::text) texts_.push_back(&column);
        }
    }

    // Whether any text of the row matches.
    bool lets_pass(std::size_t row) {
        return pattern_.matches_all() || std::any_of(texts_.begin(), texts_.end(), [&](const Column* column) {
                   return name_matches(column->cells[row]);
               });
    }

  private:
    enum class Verdict : char { unknown, yes, no };

    bool name_matches(std::int64_t id) {
        Verdict& verdict = verdicts_[static_cast<std::size_t>(id)];
        if (verdict == Verdict::unknown)
            verdict = pattern_.matches(names_.text(id)) ? Verdict::yes : Verdict::no;
        return verdict == Verdict::yes;
    }

    const Names& names_;
    const Pattern& pattern_;
    std::vector<Verdict> verdicts_;  // by name
    std::vector<const Column*> texts_;
};

}  // namespace

Pattern::Pattern(const std::string& expression) : matches_all_(expression.empty()) {
    const int error = ::regcomp(&compiled_, expression.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error == 0) return;
    char reason[120];
    ::regerror(error, &compiled_, reason, sizeof reason);
    throw CLI::ValidationError("--match",
                               "\"" + expression + "\" is no extended regular expression: " + reason);
}

Pattern::~Pattern() {
    ::regfree(&compiled_);
}

bool Pattern::matches(std::string_view text) const {
    if (matches_all_) return true;
    regmatch_t whole{0, static_cast<regoff_t>(text.size())};
    return ::regexec(&compiled_, text.data(), 1, &whole, REG_STARTEND) == 0;
}

Selection select_rows(const Table& table, const Names& names, const Pattern& pattern,
                      const std::string& sort_key, std::size_t most) {
    RowFilter filter(table, names, pattern);
    Selection selection;
    std::vector<std::uint32_t>& rows = selection.rows;
    for (std::uint32_t row = 0; row < table.rows; ++row) {
        if (filter.lets_pass(row)) rows.push_back(row);
    }
    selection.matching = rows.size();
    const std::size_t shown = most == 0 ? rows.size() : std::min(most, rows.size());
    const auto end = rows.begin() + static_cast<std::ptrdiff_t>(shown);
    const Column* column = sort_key == "name" ? nullptr : sort_column(table, sort_key);
    std::partial_sort(rows.begin(), end, rows.end(), [&](std::uint32_t left, std::uint32_t right) {
        if (column == nullptr) return texts_before(table, names, left, right);
        const std::int64_t a = column->cells[left];
        const std::int64_t b = column->cells[right];
        return a == b ? left < right : a > b;
    });
    rows.resize(shown);
    return selection;
}

}  // namespace memview
