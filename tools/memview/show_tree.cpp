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

constexpr std::size_t ROWS_OF_A_PIPE = 100;
constexpr std::size_t OTHER_LINES = 5;  // of the screen: titles, and the prompt

class TreeText {
  public:
    TreeText(const PathTree& tree, Unit unit, const Names& names, const Options& options)
        : m_tree(tree),
          m_unit(unit),
          m_names(names),
          m_options(options),
          m_sums(tree.with_children(0)),
          m_children(tree.nodes().size()),
          m_table({{"", TextTable::Align::right},
                   {"SHARE", TextTable::Align::right},
                   {"PATH", TextTable::Align::left, TextTable::Cut::end},
                   {"PLACE", TextTable::Align::left, TextTable::Cut::start}}) {}

    // The largest `most` nodes (0: all of them), each below its caller.
    void print(std::size_t most, const Terminal& terminal, std::ostream& out) {
        const std::size_t shown = choose(most == 0 ? SIZE_MAX : most);
        add(0, "", "");
        out << "  (" << shown << " of " << m_tree.nodes().size() << " places)\n";
        m_table.print(out, terminal);
    }

  private:
    // No child is larger than its caller, so the next largest is always below one that is chosen already.
    std::size_t choose(std::size_t most) {
        std::vector<std::vector<std::uint32_t>> children(m_children.size());
        for (std::uint32_t node = 1; node < children.size(); ++node) {
            if (m_sums[node] > 0) children[m_tree.nodes()[node].parent].push_back(node);
        }
        const auto smaller = [this](std::uint32_t a, std::uint32_t b) {
            return m_sums[a] == m_sums[b] ? a > b : m_sums[a] < m_sums[b];
        };
        std::priority_queue<std::uint32_t, std::vector<std::uint32_t>, decltype(smaller)> open(smaller, {0});
        std::size_t chosen = 0;
        for (; !open.empty() && chosen < most; ++chosen) {
            const std::uint32_t node = open.top();
            open.pop();
            if (node != 0) m_children[m_tree.nodes()[node].parent].push_back(node);
            for (const std::uint32_t child : children[node]) open.push(child);
        }
        return chosen;
    }

    // A place that has one caller's whole branch to itself stands straight below it.
    void add(std::uint32_t node, const std::string& mark, const std::string& indent) {
        m_table.add(cells(node, mark));
        const std::vector<std::uint32_t>& children = m_children[node];
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
        const Place& place = m_tree.frames()[m_tree.nodes()[node].frame].place;
        const std::string whole = harmless(frame_name(place, m_names));
        const std::string file = harmless(m_names.text(place.file));
        char share[32];
        std::snprintf(share, sizeof share, "%.1f %%",
                      100.0 * static_cast<double>(m_sums[node]) /
                          static_cast<double>(std::max<std::int64_t>(1, m_sums[0])));
        return {
            m_unit == Unit::bytes ? human_bytes(m_sums[node]) : grouped(m_sums[node]), share,
            mark + (m_options.full_names ? whole : readable::name(whole)),
            place.line == 0 ? harmless(m_names.text(place.module)) : file + ":" + std::to_string(place.line)};
    }

    const PathTree& m_tree;
    Unit m_unit;
    const Names& m_names;
    const Options& m_options;
    std::vector<std::int64_t> m_sums;
    std::vector<std::vector<std::uint32_t>> m_children;  // those that are shown, the largest first
    TextTable m_table;
};

std::size_t rows_of(const Options& options, const Terminal& terminal) {
    if (options.is_top_given) return options.top;
    return terminal.height > 2 * OTHER_LINES ? terminal.height - OTHER_LINES : ROWS_OF_A_PIPE;
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
