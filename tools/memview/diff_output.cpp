#include "tools/memview/diff_output.h"

#include <algorithm>

#include "tools/memview/json_rows.h"
#include "tools/memview/page.h"
#include "tools/memview/places.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

// In `width` columns; 0 for as many as it takes. Of a call site the end of the path and the function tell
// most.
std::string row_name(const Table& table, std::size_t row, const Names& names, std::size_t width) {
    const Place place = PlaceReader(table)[row];
    if (table.key != "sites") return shortened(harmless(names.text(place.module)), width);
    if (place.file == 0) return "OTHER";
    const std::string line = ":" + std::to_string(place.line) + " ";
    const std::string module = harmless(names.text(place.module)) + " ";
    const std::string file = harmless(names.text(place.file));
    const std::string function = harmless(names.text(place.function));
    if (width == 0) return module + file + line + function;
    const std::string path = shortened_path(file, width / 2) + line;
    return path + shortened(function, width - std::min(width - 1, display_width(path)));
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
        const std::size_t width = terminal.width == 0 ? 0 : std::max<std::size_t>(terminal.width, 80) - 50;
        text.add({human_bytes(before), human_bytes(before + change), human_change(change),
                  percent(before, change), row_name(table, row, names, width)});
    }
    text.print(out, terminal);
}

}  // namespace

void print_diff(const Diff& diff, std::size_t top, const Terminal& terminal, std::ostream& out) {
    for (const ProcessDiff& process : diff.processes) {
        out << bold(harmless(process.name), terminal) << ": " << diff.measure << " bytes, "
            << (process.different() ? "different" : "no difference beyond the tolerance") << "\n";
        if (!process.different()) continue;
        for (const Table& table : process.tables) print_table(table, *diff.names, top, terminal, out);
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
    return make_page([&diff](const PageLimits&) {
        Page page{"Difference in " + diff.measure + " bytes", *diff.names, {}, {}};
        for (const ProcessDiff& process : diff.processes) {
            PageProcess shown{
                process.name, process.name + (process.different() ? ": different" : ": no difference"),
                {},           {},
                {},           nullptr,
                {},           {}};
            for (const Table& table : process.tables) {
                if (table.rows > 0) shown.tables.push_back(&table);
            }
            page.processes.push_back(std::move(shown));
        }
        return page;
    });
}

}  // namespace memview
