#include "tools/memview/diff_output.h"

#include <algorithm>

#include "tools/common/readable_names.h"
#include "tools/memview/json_rows.h"
#include "tools/memview/page.h"
#include "tools/memview/places.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

// The names of a path, each as people read it.
std::string path_name(const std::string& path, bool full_names) {
    if (full_names) return path;
    std::string out;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(';', begin), path.size());
        out += (out.empty() ? "" : " > ") + readable::name(std::string_view(path).substr(begin, end - begin));
        begin = end + 1;
    }
    return out;
}

std::string row_name(const Table& table, std::size_t row, const Names& names, bool full_names) {
    const Place place = PlaceReader(table)[row];
    if (table.key == "paths") return path_name(harmless(names.text(place.module)), full_names);
    if (table.key != "sites") return harmless(names.text(place.module));
    const std::string function = harmless(names.text(place.function));
    return full_names ? function : readable::name(function);
}

std::string row_place(const Table& table, std::size_t row, const Names& names) {
    const Place place = PlaceReader(table)[row];
    if (place.file == 0) return place.module == 0 ? "OTHER" : harmless(names.text(place.module));
    return harmless(names.text(place.file)) + ":" + std::to_string(place.line);
}

std::string percent(std::int64_t before, std::int64_t change) {
    if (before == 0) return change == 0 ? "" : "new";
    char text[32];
    std::snprintf(text, sizeof text, "%+.1f %%",
                  100.0 * static_cast<double>(change) / static_cast<double>(before));
    return text;
}

void print_table(const Table& table, const Names& names, const Options& options, const Terminal& terminal,
                 std::ostream& out) {
    const std::size_t shown = options.top == 0 ? table.rows : std::min(options.top, table.rows);
    if (table.rows == 0) return;
    out << "\n" << bold(table.key, terminal) << "  (" << shown << " of " << table.rows << " changed)\n";
    const bool are_places = table.column("function") >= 0;
    const auto cut = table.key == "paths" ? TextTable::Cut::start : TextTable::Cut::end;
    std::vector<TextTable::Heading> headings = {{"BEFORE", TextTable::Align::right},
                                                {"AFTER", TextTable::Align::right},
                                                {"CHANGE", TextTable::Align::right},
                                                {"", TextTable::Align::right}};
    if (are_places) headings.push_back({"PLACE", TextTable::Align::left, TextTable::Cut::start});
    headings.push_back({table.key == "paths" ? "PATH" : "NAME", TextTable::Align::left, cut});
    TextTable text(std::move(headings));
    for (std::size_t row = 0; row < shown; ++row) {
        const std::int64_t before = (*table.cells("before"))[row];
        const std::int64_t change = (*table.cells("change"))[row];
        std::vector<std::string> cells = {human_bytes(before), human_bytes(before + change),
                                          human_change(change), percent(before, change)};
        if (are_places) cells.push_back(row_place(table, row, names));
        cells.push_back(row_name(table, row, names, options.full_names));
        text.add(std::move(cells));
    }
    text.print(out, terminal);
}

}  // namespace

void print_diff(const Diff& diff, const Options& options, const Terminal& terminal, std::ostream& out) {
    for (const ProcessDiff& process : diff.processes) {
        out << bold(harmless(process.name), terminal) << ": " << diff.measure << " bytes, "
            << (process.different() ? "different" : "no difference beyond the tolerance") << "\n";
        if (!process.different()) continue;
        for (const Table& table : process.tables) print_table(table, *diff.names, options, terminal, out);
    }
}

void write_diff_json(const Diff& diff, std::ostream& out) {
    out << "{\"format\": \"ktl_memview_diff\", \"version\": 1, \"measure\": " << json_text(diff.measure)
        << ", \"different\": " << json_text(diff.different()) << ", \"notes\": " << json_text(diff.notes)
        << ",\n\"processes\": [";
    const char* before = "\n";
    for (const ProcessDiff& process : diff.processes) {
        out << before << "{\"name\": " << json_text(process.name)
            << ", \"different\": " << json_text(process.different())
            << ", \"notes\": " << json_text(process.notes);
        before = ",\n";
        for (const Table& table : process.tables) {
            out << ",\n";
            write_rows(table, *diff.names, out);
        }
        out << "}";
    }
    out << "]}\n";
}

std::string diff_page(const Diff& diff) {
    return make_page([&diff](const PageLimits& limits) {
        Page page{"Difference in " + diff.measure + " bytes", *diff.names, {}, {}};
        for (const ProcessDiff& process : diff.processes) {
            PageProcess shown;
            shown.name = process.name;
            shown.folder = process.name + (process.different() ? ": different" : ": no difference");
            for (const Table& table : process.tables) {
                if (table.rows > 0) shown.tables.push_back(&table);
            }
            if (process.paths_before != nullptr) {
                shown.flame.emplace(FlameData{
                    compared_paths(process, diff.measure, *diff.names, {.most_nodes = limits.nodes}),
                    {{"before", "Before", Unit::bytes}, {"after", "After", Unit::bytes}},
                    true});
            }
            page.processes.push_back(std::move(shown));
        }
        return page;
    });
}

}  // namespace memview
