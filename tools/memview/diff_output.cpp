#include "tools/memview/diff_output.h"

#include <algorithm>

#include "tools/memview/json_rows.h"
#include "tools/memview/page.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

std::string row_name(const Table& table, std::size_t row, const Names& names) {
    if (table.key != "sites") return harmless(names.text((*table.cells("name"))[row]));
    const std::string& file = names.text((*table.cells("file"))[row]);
    if (file.empty()) return "OTHER";
    return harmless(names.text((*table.cells("module"))[row])) + "  " + harmless(file) + ":" +
           std::to_string((*table.cells("line"))[row]) + "  " +
           harmless(names.text((*table.cells("function"))[row]));
}

std::string percent(std::int64_t before, std::int64_t change) {
    if (before == 0) return change == 0 ? "" : "new";
    char text[32];
    std::snprintf(text, sizeof text, "%+.1f %%",
                  100.0 * static_cast<double>(change) / static_cast<double>(before));
    return text;
}

void print_table(const Table& table, const Names& names, std::size_t top, const Terminal& terminal,
                 std::ostream& out) {
    const std::size_t shown = top == 0 ? table.rows : std::min(top, table.rows);
    if (table.rows == 0) return;
    out << "\n" << bold(table.key, terminal) << "  (" << shown << " of " << table.rows << " changed)\n";
    TextTable text({{"BEFORE", TextTable::Align::right},
                    {"AFTER", TextTable::Align::right},
                    {"CHANGE", TextTable::Align::right},
                    {"", TextTable::Align::right},
                    {"NAME", TextTable::Align::left}});
    for (std::size_t row = 0; row < shown; ++row) {
        const std::int64_t before = (*table.cells("before"))[row];
        const std::int64_t change = (*table.cells("change"))[row];
        const std::size_t width = terminal.width == 0 ? 0 : std::max<std::size_t>(terminal.width, 88) - 48;
        text.add({human_bytes(before), human_bytes(before + change), human_change(change),
                  percent(before, change), shortened(row_name(table, row, names), width)});
    }
    text.print(out, terminal);
}

}  // namespace

void print_diff(const Diff& diff, std::size_t top, const Terminal& terminal, std::ostream& out) {
    for (const ProcessDiff& process : diff.processes) {
        out << bold(harmless(process.name), terminal) << ": " << diff.measure << " bytes, "
            << (process.different() ? "different" : "no difference beyond the tolerance") << "\n";
        if (!process.different()) continue;
        for (const Table& table : process.tables) print_table(table, diff.names, top, terminal, out);
    }
}

std::string diff_json(const Diff& diff) {
    nlohmann::ordered_json processes = nlohmann::ordered_json::array();
    for (const ProcessDiff& process : diff.processes) {
        nlohmann::ordered_json one = {{"name", process.name}, {"different", process.different()}};
        for (const Table& table : process.tables) {
            nlohmann::ordered_json rows = nlohmann::ordered_json::array();
            for (std::size_t row = 0; row < table.rows; ++row)
                rows.push_back(row_json(table, row, diff.names));
            one[table.key] = std::move(rows);
        }
        one["notes"] = process.notes;
        processes.push_back(std::move(one));
    }
    return json_text({{"format", "ktl_memview_diff"},
                      {"version", 1},
                      {"measure", diff.measure},
                      {"different", diff.different()},
                      {"notes", diff.notes},
                      {"processes", std::move(processes)}}) +
           "\n";
}

std::string diff_page(const Diff& diff) {
    return make_page([&diff](const PageLimits&) {
        Page page{"Difference in " + diff.measure + " bytes", diff.names, {}, {}};
        for (const ProcessDiff& process : diff.processes) {
            PageProcess shown{
                process.name, process.different() ? "different" : "no difference", {}, {}, {}, {}, {}};
            for (const Table& table : process.tables) {
                if (table.rows > 0) shown.tables.push_back(&table);
            }
            page.processes.push_back(std::move(shown));
        }
        return page;
    });
}

}  // namespace memview
