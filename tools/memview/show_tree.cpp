#include "tools/memview/show_tree.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <queue>

#include "tools/common/readable_names.h"
#include "tools/memview/path_tree.h"
#include "tools/memview/units.h"
#include "tools/reports/problems.h"

namespace memview {
namespace {

constexpr std::size_t rows_of_a_pipe = 100;
constexpr std::size_t other_lines = 5;  // of the screen: titles, and the prompt

class TreeText {
  public:
    TreeText(const PathTree& tree, Unit unit, const Names& names, const Options& options)
        : tree_(tree),
          unit_(unit),
          names_(names),
          options_(options),
          sums_(tree.with_children(0)),
          children_(tree.nodes().size()),
          table_({{"", TextTable::Align::right},
                  {"SHARE", TextTable::Align::right},
                  {"PATH", TextTable::Align::left, TextTable::Cut::end},
                  {"PLACE", TextTable::Align::left, TextTable::Cut::start}}) {}

    // The largest `most` nodes (0: all of them), each below its caller.
    void print(std::size_t most, const Terminal& terminal, std::ostream& out) {
        const std::size_t shown = choose(most == 0 ? SIZE_MAX : most);
        add(0, "", "");
        out << "  (" << shown << " of " << tree_.nodes().size() << " places)\n";
        table_.print(out, terminal);
    }

  private:
    // No child is larger than its caller, so the next largest is always below one that is chosen already.
    std::size_t choose(std::size_t most) {
        std::vector<std::vector<std::uint32_t>> children(children_.size());
        for (std::uint32_t node = 1; node < children.size(); ++node) {
            if (sums_[node] > 0) children[tree_.nodes()[node].parent].push_back(node);
        }
        const auto smaller = [this](std::uint32_t a, std::uint32_t b) {
            return sums_[a] == sums_[b] ? a > b : sums_[a] < sums_[b];
        };
        std::priority_queue<std::uint32_t, std::vector<std::uint32_t>, decltype(smaller)> open(smaller, {0});
        std::size_t chosen = 0;
        for (; !open.empty() && chosen < most; ++chosen) {
            const std::uint32_t node = open.top();
            open.pop();
            if (node != 0) children_[tree_.nodes()[node].parent].push_back(node);
            for (const std::uint32_t child : children[node]) open.push(child);
        }
        return chosen;
    }

    // A place that has one caller's whole branch to itself stands straight below it.
    void add(std::uint32_t node, const std::string& mark, const std::string& indent) {
        table_.add(cells(node, mark));
        const std::vector<std::uint32_t>& children = children_[node];
        for (const std::uint32_t child : children) {
            const bool is_last = child == children.back();
            if (children.size() == 1) {
                add(child, indent, indent);
            } else {
                add(child, indent + (is_last ? "└ " : "├ "), indent + (is_last ? "  " : "│ "));
            }
        }
    }

    std::vector<std::string> cells(std::uint32_t node, const std::string& mark) const {
        const Place& place = tree_.frames()[tree_.nodes()[node].frame].place;
        const std::string whole = harmless(frame_name(place, names_));
        const std::string file = harmless(names_.text(place.file));
        char share[32];
        std::snprintf(share, sizeof share, "%.1f %%",
                      100.0 * static_cast<double>(sums_[node]) /
                          static_cast<double>(std::max<std::int64_t>(1, sums_[0])));
        return {
            unit_ == Unit::bytes ? human_bytes(sums_[node]) : grouped(sums_[node]), share,
            mark + (options_.full_names ? whole : readable::name(whole)),
            place.line == 0 ? harmless(names_.text(place.module)) : file + ":" + std::to_string(place.line)};
    }

    const PathTree& tree_;
    Unit unit_;
    const Names& names_;
    const Options& options_;
    std::vector<std::int64_t> sums_;
    std::vector<std::vector<std::uint32_t>> children_;  // those that are shown, the largest first
    TextTable table_;
};

std::size_t rows_of(const Options& options, const Terminal& terminal) {
    if (options.is_top_given) return options.top;
    return terminal.height > 2 * other_lines ? terminal.height - other_lines : rows_of_a_pipe;
}

}  // namespace

void show_tree(const Run& run, Names& names, const Options& options, const Terminal& terminal,
               std::ostream& out) {
    if (!run.paths)
        throw ReportError(
            {run.folder, 0, "process " + in_quotes(run.name) + " has no call paths: track with --paths"});
    const int column = run.paths->nodes.column(options.sort);
    if (column < 0)
        throw CLI::ValidationError("--sort", "call paths have no figure \"" + options.sort + "\"");
    const ColumnSpec& spec = run.paths->nodes.columns[static_cast<std::size_t>(column)].spec;
    PathTree tree(names, 1);
    const std::array columns = {spec.key};
    tree.add(*run.paths, columns, 0, {.with_filtered = false});
    out << bold(harmless(run.name), terminal) << ": " << spec.title << " by who called for them";
    TreeText(tree, spec.unit, names, options).print(rows_of(options, terminal), terminal, out);
}

}  // namespace memview
