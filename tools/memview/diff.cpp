#include "tools/memview/diff.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>

#include "tools/memview/places.h"
#include "tools/memview/summary.h"
#include "tools/reports/exact_peak.h"
#include "tools/reports/fields.h"
#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

constexpr std::size_t most_paths = 100'000;

struct DiffRow {
    Place place;
    Pair pair;
};

bool is_beyond(const Pair& pair, const Amount& tolerance) {
    return static_cast<double>(std::llabs(pair.change())) >
           tolerance.of(static_cast<double>(std::llabs(pair.before)));
}

// Lines of one function that both runs have stay as they are; of the others the first goes with the first,
// and so on, since code that moves keeps its order. What is left over came or went.
void add_function(std::span<const DiffRow> lines, std::vector<DiffRow>& rows) {
    std::vector<const DiffRow*> gone;
    std::vector<const DiffRow*> come;
    for (const DiffRow& line : lines) {
        if (line.pair.is_before && line.pair.is_after) {
            rows.push_back(line);
        } else {
            (line.pair.is_before ? gone : come).push_back(&line);
        }
    }
    for (std::size_t i = 0; i < std::max(gone.size(), come.size()); ++i) {
        DiffRow row = i < come.size() ? *come[i] : *gone[i];
        if (i < gone.size()) row.pair.before = gone[i]->pair.before;
        rows.push_back(row);
    }
}

bool is_one_function(const Place& a, const Place& b) {
    return a.module == b.module && a.file == b.file && a.function == b.function;
}

// A row for each name, or for each line of each function.
std::vector<DiffRow> compared_rows(const PlaceSums& sums) {
    std::vector<DiffRow> places;
    places.reserve(sums.size());
    for (const auto& [place, pair] : sums) places.push_back({place, pair});
    std::sort(places.begin(), places.end(),
              [](const DiffRow& a, const DiffRow& b) { return a.place < b.place; });
    std::vector<DiffRow> rows;
    for (auto first = places.begin(); first != places.end();) {
        const auto last = std::find_if(first, places.end(), [&](const DiffRow& row) {
            return !is_one_function(row.place, first->place);
        });
        add_function({first, last}, rows);
        first = last;
    }
    return rows;
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
                                                                {"line", "Line", Unit::line},
                                                                {"function", "Function", Unit::text}});
    return columns;
}

const std::vector<ColumnSpec>& name_diff_columns() {
    static const std::vector<ColumnSpec> columns = with_change({{"name", "Name", Unit::text}});
    return columns;
}

Table make_table(const char* key, std::vector<DiffRow> rows, const Amount& tolerance) {
    std::erase_if(rows, [&](const DiffRow& row) { return !is_beyond(row.pair, tolerance); });
    std::stable_sort(rows.begin(), rows.end(), [](const DiffRow& a, const DiffRow& b) {
        return std::llabs(a.pair.change()) > std::llabs(b.pair.change());
    });
    const bool sites = key == std::string_view("sites");
    Table table = empty_table(key, "", sites ? site_diff_columns() : name_diff_columns());
    for (const auto& [place, pair] : rows) {
        if (sites) {
            table.add_row({place.module, place.file, place.line, place.function, pair.before, pair.after,
                           pair.change()});
        } else {
            table.add_row({place.module, pair.before, pair.after, pair.change()});
        }
    }
    return table;
}

const char* who_has_them(bool is_before, bool is_after) {
    if (is_before) return "only the run before has them";
    return is_after ? "only the run after has them" : "neither run has that figure of them";
}

class Comparison {
  public:
    Comparison(Names& names, const Amount& tolerance, Diff& diff)
        : names_(names), tolerance_(tolerance), diff_(diff) {}

    ProcessDiff compare(const Run& before, const Run& after) {
        ProcessDiff result;
        result.name = before.name == after.name ? before.name : before.name + " → " + after.name;
        std::vector<DiffRow> totals;
        for (const char* key : {"sites", "modules", "bins", "tags"}) {
            const Table* old_table = before.table(key);
            const Table* new_table = after.table(key);
            if (old_table == nullptr && new_table == nullptr) continue;
            if (!has_measure(old_table) || !has_measure(new_table)) {
                result.notes.push_back(result.name + ": the " + key + " were not compared: " +
                                       who_has_them(has_measure(old_table), has_measure(new_table)));
                continue;
            }
            const std::string old_column = column_of(before, *old_table);
            const std::string new_column = column_of(after, *new_table);
            totals.push_back(
                {{names_.id_of(key)}, {old_table->sum(old_column), new_table->sum(new_column), true, true}});
            PlaceSums sums;
            add_sums(*old_table, old_column, Side::before, sums);
            add_sums(*new_table, new_column, Side::after, sums);
            result.tables.push_back(make_table(key, compared_rows(sums), tolerance_));
        }
        compare_paths(before, after, result);
        result.tables.insert(result.tables.begin(), make_table("totals", std::move(totals), tolerance_));
        return result;
    }

  private:
    void compare_paths(const Run& before, const Run& after, ProcessDiff& result) {
        if (!before.paths && !after.paths) return;
        const bool is_before = before.paths && has_measure(&before.paths->nodes);
        const bool is_after = after.paths && has_measure(&after.paths->nodes);
        if (!is_before || !is_after) {
            result.notes.push_back(result.name +
                                   ": the paths were not compared: " + who_has_them(is_before, is_after));
            return;
        }
        result.paths_before = &*before.paths;
        result.paths_after = &*after.paths;
        result.tables.push_back(make_table("paths", path_rows(result), tolerance_));
    }

    // Those beyond the tolerance, each with the names from the outermost caller to the place that is charged.
    std::vector<DiffRow> path_rows(const ProcessDiff& process) {
        const TreeForm form{.with_lines = false, .with_filtered = false, .most_nodes = most_paths};
        const PathTree tree = compared_paths(process, diff_.measure, names_, form);
        std::vector<DiffRow> rows;
        for (std::size_t node = 1; node < tree.nodes().size(); ++node) {
            const Pair pair{tree.own(node, 0), tree.own(node, 1), true, true};
            if (is_beyond(pair, tolerance_)) rows.push_back({{names_.id_of(path_text(tree, node))}, pair});
        }
        return rows;
    }

    std::string path_text(const PathTree& tree, std::size_t node) const {
        std::vector<std::size_t> trail;
        for (; node != 0; node = tree.nodes()[node].parent) trail.push_back(node);
        std::string text;
        for (auto at = trail.rbegin(); at != trail.rend(); ++at) {
            if (!text.empty()) text += ";";
            text += frame_name(tree.frames()[tree.nodes()[*at].frame].place, names_);
        }
        return text;
    }

    bool has_measure(const Table* table) const {
        return table != nullptr && table->column(diff_.measure) >= 0;
    }
    std::string column_of(const Run& run, const Table& table) const {
        const std::string column = meant_column(table, diff_.measure);
        return column == "peak" && grew_to_its_end(run) ? "current" : column;
    }

    Names& names_;
    const Amount& tolerance_;
    Diff& diff_;
};

// "g++.cc1plus.3876" without its process number, and that number.
std::pair<std::string_view, std::uint64_t> split_name(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    std::uint64_t number = 0;
    if (dot == std::string_view::npos || !parse_number(name.substr(dot + 1), number)) return {name, 0};
    return {name.substr(0, dot), number};
}

using RunPair = std::pair<const Run*, const Run*>;

// Moves what both have, by `key`, from the two into pairs; the first goes with the first of the same
// key.
template <class Key>
void pair_by(Key key, std::vector<const Run*>& before, std::vector<const Run*>& after,
             std::vector<RunPair>& pairs) {
    std::erase_if(before, [&](const Run* run) {
        const auto other = std::find_if(after.begin(), after.end(),
                                        [&](const Run* one) { return key(one->name) == key(run->name); });
        if (other == after.end()) return false;
        pairs.emplace_back(run, *other);
        after.erase(other);
        return true;
    });
}

std::vector<const Run*> by_number(const Folder& folder) {
    std::vector<const Run*> runs;
    for (const Run& run : folder.runs) runs.push_back(&run);
    std::stable_sort(runs.begin(), runs.end(), [](const Run* a, const Run* b) {
        return split_name(a->name).second < split_name(b->name).second;
    });
    return runs;
}

}  // namespace

bool ProcessDiff::different() const {
    return std::any_of(tables.begin(), tables.end(), [](const Table& table) { return table.rows > 0; });
}

bool Diff::different() const {
    return !notes.empty() || std::any_of(processes.begin(), processes.end(),
                                         [](const ProcessDiff& process) { return process.different(); });
}

PathTree compared_paths(const ProcessDiff& process, const std::string& measure, Names& names, TreeForm form) {
    form.with_lines = false;
    const std::array column = {measure.c_str()};
    PathTree tree(names, 2);
    tree.add(*process.paths_before, column, 0, form);
    tree.add(*process.paths_after, column, 1, form);
    return tree;
}

std::unique_ptr<Diff> make_diff(const Folder& before, const Folder& after, const std::string& measure,
                                const Amount& tolerance) {
    auto diff = std::make_unique<Diff>();
    diff->measure = measure;
    diff->names = before.names;
    Comparison comparison(*before.names, tolerance, *diff);
    std::vector<const Run*> old_runs = by_number(before);
    std::vector<const Run*> new_runs = by_number(after);
    std::vector<RunPair> pairs;
    const bool single = old_runs.size() == 1 && new_runs.size() == 1;
    pair_by([&](const std::string& name) { return single ? std::string() : name; }, old_runs, new_runs,
            pairs);
    pair_by([](const std::string& name) { return split_name(name).first; }, old_runs, new_runs, pairs);
    for (const auto& [run, other] : pairs) diff->processes.push_back(comparison.compare(*run, *other));
    for (const Run* run : old_runs)
        diff->notes.push_back("process " + in_quotes(run->name) + " is only in the run before");
    for (const Run* run : new_runs)
        diff->notes.push_back("process " + in_quotes(run->name) + " is only in the run after");
    diff->has_new_process = !new_runs.empty();
    const bool compared = std::any_of(diff->processes.begin(), diff->processes.end(),
                                      [](const ProcessDiff& process) { return process.tables.size() > 1; });
    if (!compared)
        throw ReportError({after.runs.front().folder, 0, "has no table in common with the run before"});
    return diff;
}

}  // namespace memview
