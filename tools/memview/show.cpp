#include "tools/memview/show.h"

#include <algorithm>
#include <cctype>

#include "tools/common/readable_names.h"
#include "tools/memview/selection.h"
#include "tools/memview/show_resident.h"
#include "tools/memview/summary.h"
#include "tools/memview/units.h"
#include "tools/reports/exact_peak.h"
#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

constexpr std::size_t spark_width = 32;
constexpr const char* recorded_peak_key = "recorded_peak";

struct View {
    const char* key;
    const char* title;
    const char* timeline;  // with the course of the rows, or null
};

constexpr View views[] = {{"sites", "Call sites", nullptr}, {"modules", "Modules", module_timeline_detailed},
                          {"bins", "Bins", nullptr},        {"tags", "Tags", tag_timeline},
                          {"leaks", "Leaks", nullptr},      {"fast_leaks", "Fast leak summaries", nullptr}};

std::string figure_text(std::int64_t value, Unit unit) {
    return unit == Unit::bytes ? human_bytes(value) : grouped(value);
}

std::string upper(std::string text) {
    for (char& c : text) c = c == '_' ? ' ' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool same_name(const std::string& a, const std::string& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

class Show {
  public:
    Show(const Folder& folder, const Options& options, const Terminal& terminal, std::ostream& out)
        : names_(*folder.names), options_(options), terminal_(terminal), out_(out), pattern_(options.match) {}

    void print(const Run& run) const {
        out_ << bold(harmless(run.name), terminal_) << "  (" << harmless(run.folder) << ")\n";
        print_summary(run);
        for (const auto& [kind, title] :
             {std::pair{auxiliary_timeline, "Process"}, {module_timeline, "Modules"}}) {
            const Timeline* timeline = run.timeline(kind);
            if (timeline != nullptr) print_series(*timeline, title);
        }
        if (run.resident) show_resident(*run.resident, terminal_, out_);
        for (const View& view : views) {
            const Table* table = run.table(view.key);
            if (table != nullptr) print_table(run, *table, view);
        }
    }

  private:
    void print_summary(const Run& run) const {
        std::string what;
        for (const std::string& one : tracked(run)) what += (what.empty() ? "" : ", ") + one;
        out_ << "  Tracked: " << what << "\n";
        TextTable table({{"", TextTable::Align::left}, {"", TextTable::Align::right}});
        const std::vector<Figure> figures = summary(run);
        for (const Figure& figure : figures)
            table.add({figure.title, figure_text(figure.value, figure.unit)});
        table.print(out_, terminal_);
        for (const Figure& figure : figures)
            if (figure.value < 0) out_ << "  " << figure.title << ": " << figure.explanation << "\n";
    }

    void print_series(const Timeline& timeline, const char* title) const {
        out_ << "\n"
             << bold(std::string(title) + " over " + grouped(static_cast<std::int64_t>(timeline.samples)) +
                         " samples",
                     terminal_)
             << "\n";
        TextTable table({{"HIGHEST", TextTable::Align::right},
                         {"LAST", TextTable::Align::right},
                         {"COURSE", TextTable::Align::left},
                         {"SERIES", TextTable::Align::left, TextTable::Cut::end}});
        for (const Series* series : shown_series(timeline)) {
            const bool counts =
                series->name == "page_faults" || series->name.find("_num_") != std::string::npos;
            const Unit unit = counts ? Unit::blocks : Unit::bytes;
            table.add({figure_text(series->highest, unit), figure_text(series->last, unit),
                       sparkline(series->stretches, spark_width), harmless(series->name)});
        }
        table.print(out_, terminal_);
    }

    std::vector<const Series*> shown_series(const Timeline& timeline) const {
        std::vector<const Series*> all;
        for (const Series& series : timeline.series) {
            if (pattern_.matches(series.name)) all.push_back(&series);
        }
        std::stable_sort(all.begin(), all.end(),
                         [](const Series* a, const Series* b) { return a->highest > b->highest; });
        if (options_.top != 0 && all.size() > options_.top) all.resize(options_.top);
        return all;
    }

    void print_table(const Run& run, const Table& table, const View& view) const {
        const Selection selection = select_rows(table, names_, pattern_, options_.sort, options_.top);
        const std::string sort =
            table.column(options_.sort) >= 0 || options_.sort == "name" ? options_.sort : "bytes";
        out_ << "\n"
             << bold(view.title, terminal_) << "  (" << selection.rows.size() << " of " << selection.matching
             << (pattern_.matches_all() ? "" : " matching") << ", by " << sort << ")\n";
        if (selection.rows.empty()) return;
        const bool has_room = terminal_.width == 0 || terminal_.width >= 100;
        const Timeline* course = has_room && view.timeline != nullptr ? run.timeline(view.timeline) : nullptr;
        TextTable text(headings(run, table, course != nullptr));
        for (const std::uint32_t row : selection.rows) text.add(cells(table, row, course));
        text.print(out_, terminal_);
    }

    // The figure that the rows are sorted by, then as many others as leave room for the names; the exports
    // have all.
    std::vector<const Column*> figure_columns(const Table& table) const {
        std::vector<std::string> keys = {"peak", "current"};
        if (terminal_.width == 0 || terminal_.width >= 100) keys.emplace_back("cumulative");
        if (terminal_.width == 0 || terminal_.width >= 130)
            keys.insert(keys.end(), {"max", "peak_blocks", "current_blocks", recorded_peak_key});
        std::erase(keys, options_.sort);
        keys.insert(keys.begin(), options_.sort);
        std::vector<const Column*> columns;
        for (const std::string& key : keys) {
            const bool has_recorded = table.column(exact_peak) >= 0;
            if (key == recorded_peak_key && !has_recorded) continue;
            const int index = table.column(key == recorded_peak_key ? "peak" : meant_column(table, key));
            if (index < 0) continue;
            const Column& column = table.columns[static_cast<std::size_t>(index)];
            if (column.spec.unit != Unit::text) columns.push_back(&column);
        }
        return columns;
    }

    static std::string heading(const Run& run, const Table& table, const Column& column) {
        const std::string key = column.spec.key;
        if (table.key == "leaks" && column.spec.unit == Unit::bytes) return "LEAKED";
        if (key == exact_peak) return "PEAK";
        if (key == exact_peak_blocks) return "PEAK BLOCKS";
        return key == "peak" && run.paths ? upper(recorded_peak_key) : upper(key);
    }

    std::vector<TextTable::Heading> headings(const Run& run, const Table& table, bool with_course) const {
        std::vector<TextTable::Heading> all;
        for (const Column* column : figure_columns(table))
            all.push_back({heading(run, table, *column), TextTable::Align::right});
        if (with_course) all.push_back({"COURSE", TextTable::Align::left});
        const bool is_place = table.column("function") >= 0;
        if (is_place) all.push_back({"MODULE", TextTable::Align::left, TextTable::Cut::end});
        if (is_place) all.push_back({"PLACE", TextTable::Align::left, TextTable::Cut::start});
        all.push_back({is_place ? "FUNCTION" : "NAME", TextTable::Align::left, TextTable::Cut::end});
        return all;
    }

    std::vector<std::string> cells(const Table& table, std::size_t row, const Timeline* course) const {
        std::vector<std::string> all;
        for (const Column* column : figure_columns(table))
            all.push_back(figure_text(column->cells[row], column->spec.unit));
        if (course != nullptr) all.push_back(course_of(*course, text(table, row, "name")));
        add_names(table, row, all);
        return all;
    }

    void add_names(const Table& table, std::size_t row, std::vector<std::string>& all) const {
        if (table.column("function") < 0) {
            const std::string name = text(table, row, "name");
            all.push_back(name.empty() ? "-" : name);
            return;
        }
        const std::string module = text(table, row, "module");
        const std::string file = text(table, row, "file");
        const std::string function = text(table, row, "function");
        all.push_back(module.empty() ? "OTHER" : module);
        all.push_back(file.empty() ? "" : file + ":" + std::to_string((*table.cells("line"))[row]));
        all.push_back(options_.full_names ? function : readable::name(function));
    }

    static std::string course_of(const Timeline& timeline, const std::string& name) {
        for (const Series& series : timeline.series) {
            if (same_name(series.name, name)) return sparkline(series.stretches, spark_width);
        }
        return {};
    }

    std::string text(const Table& table, std::size_t row, const char* key) const {
        return table.column(key) < 0 ? std::string() : harmless(table.text(key, row, names_));
    }

    const Names& names_;
    const Options& options_;
    const Terminal& terminal_;
    std::ostream& out_;
    Pattern pattern_;
};

}  // namespace

void show(const Folder& folder, const Options& options, const Terminal& terminal, std::ostream& out) {
    const Show view(folder, options, terminal, out);
    bool first = true;
    for (const Run& run : folder.runs) {
        if (!first) out << "\n";
        first = false;
        view.print(run);
    }
}

}  // namespace memview
