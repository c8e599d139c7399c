#include "tools/memview/diff.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

#include "tools/memview/report_kinds.h"

namespace memview {
namespace {

struct Change {
    std::int64_t before = 0;
    std::int64_t after = 0;

    std::int64_t value() const { return after - before; }
};

bool is_beyond(const Change& change, const Amount& tolerance) {
    return static_cast<double>(std::llabs(change.value())) >
           tolerance.of(static_cast<double>(std::llabs(change.before)));
}

// A row of the result, not yet sorted: texts by number, and the line of a call site.
struct DiffRow {
    std::vector<std::int64_t> texts;
    std::int64_t line = 0;
    Change change;
};

using Lines = std::map<std::int64_t, std::int64_t>;  // line -> bytes
using FunctionKey = std::tuple<std::string, std::string, std::string>;

struct FunctionLines {
    Lines before;
    Lines after;
};

void collect_lines(const Table& sites, const Names& names, const std::string& measure, bool is_after,
                   std::map<FunctionKey, FunctionLines>& functions) {
    const auto& module = *sites.cells("module");
    const auto& file = *sites.cells("file");
    const auto& function = *sites.cells("function");
    const auto& line = *sites.cells("line");
    const auto& value = *sites.cells(measure);
    for (std::size_t row = 0; row < sites.rows; ++row) {
        FunctionLines& lines =
            functions[{names.text(module[row]), names.text(file[row]), names.text(function[row])}];
        (is_after ? lines.after : lines.before)[line[row]] += value[row];
    }
}

// Lines that both runs have belong together; of the others the first goes with the first, and so on, since
// code that moves keeps its order. What is left over came or went.
std::vector<std::pair<std::int64_t, Change>> match_lines(FunctionLines lines) {
    std::vector<std::pair<std::int64_t, Change>> matched;
    for (auto at = lines.before.begin(); at != lines.before.end();) {
        const auto same = lines.after.find(at->first);
        if (same == lines.after.end()) {
            ++at;
            continue;
        }
        matched.push_back({at->first, {at->second, same->second}});
        lines.after.erase(same);
        at = lines.before.erase(at);
    }
    auto before = lines.before.begin();
    auto after = lines.after.begin();
    while (before != lines.before.end() || after != lines.after.end()) {
        const std::int64_t line = after != lines.after.end() ? after->first : before->first;
        Change change;
        if (before != lines.before.end()) change.before = (before++)->second;
        if (after != lines.after.end()) change.after = (after++)->second;
        matched.push_back({line, change});
    }
    return matched;
}

std::vector<ColumnSpec> with_change(std::vector<ColumnSpec> columns) {
    columns.push_back({"before", "Before", Unit::bytes});
    columns.push_back({"after", "After", Unit::bytes});
    columns.push_back({"change", "Change", Unit::bytes});
    return columns;
}

const std::vector<ColumnSpec>& site_diff_columns() {
    static const std::vector<ColumnSpec> columns = with_change({{"module", "Module", Unit::text},
                                                                {"file", "File", Unit::text},
                                                                {"function", "Function", Unit::text},
                                                                {"line", "Line", Unit::line}});
    return columns;
}

const std::vector<ColumnSpec>& name_diff_columns() {
    static const std::vector<ColumnSpec> columns = with_change({{"name", "Name", Unit::text}});
    return columns;
}

Table make_table(const char* key, std::vector<DiffRow> rows, const Amount& tolerance) {
    std::erase_if(rows, [&](const DiffRow& row) { return !is_beyond(row.change, tolerance); });
    std::stable_sort(rows.begin(), rows.end(), [](const DiffRow& a, const DiffRow& b) {
        return std::llabs(a.change.value()) > std::llabs(b.change.value());
    });
    Table table;
    table.key = key;
    const bool sites = table.key == "sites";
    for (const ColumnSpec& spec : sites ? site_diff_columns() : name_diff_columns())
        table.columns.push_back({spec, {}});
    for (const DiffRow& row : rows) {
        std::size_t column = 0;
        for (const std::int64_t text : row.texts) table.columns[column++].cells.push_back(text);
        if (sites) table.columns[column++].cells.push_back(row.line);
        for (const std::int64_t value : {row.change.before, row.change.after, row.change.value()}) {
            table.columns[column++].cells.push_back(value);
        }
    }
    table.rows = rows.size();
    return table;
}

class Comparison {
  public:
    Comparison(const Folder& before, const Folder& after, const Amount& tolerance, Diff& diff)
        : m_before(before), m_after(after), m_tolerance(tolerance), m_diff(diff) {}

    ProcessDiff compare(const Run& before, const Run& after) {
        ProcessDiff result;
        result.name = before.name == after.name ? before.name : before.name + " → " + after.name;
        std::vector<DiffRow> totals;
        for (const char* key : {"sites", "modules", "bins", "tags"}) {
            const Table* old_table = before.table(key);
            const Table* new_table = after.table(key);
            if (old_table == nullptr && new_table == nullptr) continue;
            if (old_table == nullptr || new_table == nullptr || !have_measure(*old_table, *new_table)) {
                result.notes.push_back(result.name + ": the " + key + " were not compared: only the run " +
                                       (has_measure(old_table) ? "before" : "after") + " has them");
                continue;
            }
            totals.push_back(total_row(key, *old_table, *new_table));
            std::vector<DiffRow> rows = std::string_view(key) == "sites" ? site_rows(*old_table, *new_table)
                                                                         : name_rows(*old_table, *new_table);
            result.tables.push_back(make_table(key, std::move(rows), m_tolerance));
        }
        result.tables.insert(result.tables.begin(), make_table("totals", std::move(totals), m_tolerance));
        return result;
    }

  private:
    bool has_measure(const Table* table) const {
        return table != nullptr && table->column(m_diff.measure) >= 0;
    }
    bool have_measure(const Table& a, const Table& b) const { return has_measure(&a) && has_measure(&b); }

    DiffRow total_row(const char* key, const Table& before, const Table& after) {
        return {{m_diff.names.id_of(key)}, 0, {before.sum(m_diff.measure), after.sum(m_diff.measure)}};
    }

    std::vector<DiffRow> site_rows(const Table& before, const Table& after) {
        std::map<FunctionKey, FunctionLines> functions;
        collect_lines(before, m_before.names, m_diff.measure, false, functions);
        collect_lines(after, m_after.names, m_diff.measure, true, functions);
        std::vector<DiffRow> rows;
        for (const auto& [key, lines] : functions) {
            const auto& [module, file, function] = key;
            const std::vector<std::int64_t> texts = {m_diff.names.id_of(module), m_diff.names.id_of(file),
                                                     m_diff.names.id_of(function)};
            for (const auto& [line, change] : match_lines(lines)) rows.push_back({texts, line, change});
        }
        return rows;
    }

    std::vector<DiffRow> name_rows(const Table& before, const Table& after) {
        std::map<std::string, Change> changes;
        for (std::size_t row = 0; row < before.rows; ++row) {
            changes[m_before.names.text((*before.cells("name"))[row])].before +=
                (*before.cells(m_diff.measure))[row];
        }
        for (std::size_t row = 0; row < after.rows; ++row) {
            changes[m_after.names.text((*after.cells("name"))[row])].after +=
                (*after.cells(m_diff.measure))[row];
        }
        std::vector<DiffRow> rows;
        rows.reserve(changes.size());
        for (const auto& [name, change] : changes) rows.push_back({{m_diff.names.id_of(name)}, 0, change});
        return rows;
    }

    const Folder& m_before;
    const Folder& m_after;
    const Amount& m_tolerance;
    Diff& m_diff;
};

const Run* run_of_name(const Folder& folder, const std::string& name) {
    const auto found = std::find_if(folder.runs.begin(), folder.runs.end(),
                                    [&](const Run& run) { return run.name == name; });
    return found == folder.runs.end() ? nullptr : &*found;
}

}  // namespace

bool ProcessDiff::different() const {
    return std::any_of(tables.begin(), tables.end(), [](const Table& table) { return table.rows > 0; });
}

bool Diff::different() const {
    return !notes.empty() || std::any_of(processes.begin(), processes.end(),
                                         [](const ProcessDiff& process) { return process.different(); });
}

std::unique_ptr<Diff> make_diff(const Folder& before, const Folder& after, const std::string& measure,
                                const Amount& tolerance) {
    auto diff = std::make_unique<Diff>();
    diff->measure = measure;
    Comparison comparison(before, after, tolerance, *diff);
    const bool single = before.runs.size() == 1 && after.runs.size() == 1;
    for (const Run& run : before.runs) {
        const Run* other = single ? &after.runs.front() : run_of_name(after, run.name);
        if (other != nullptr) {
            diff->processes.push_back(comparison.compare(run, *other));
        } else {
            diff->notes.push_back("process " + in_quotes(run.name) + " is only in the run before");
        }
    }
    for (const Run& run : after.runs) {
        if (single || run_of_name(before, run.name) != nullptr) continue;
        diff->notes.push_back("process " + in_quotes(run.name) + " is only in the run after");
    }
    const bool compared = std::any_of(diff->processes.begin(), diff->processes.end(),
                                      [](const ProcessDiff& process) { return process.tables.size() > 1; });
    if (!compared)
        throw ReportError({after.runs.front().folder, 0, "has no table in common with the run before"});
    return diff;
}

}  // namespace memview
