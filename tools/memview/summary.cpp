#include "tools/memview/summary.h"

#include <algorithm>

#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

// The table whose rows hold all tracked bytes.
const Table* whole_table(const Run& run) {
    for (const char* key : {"sites", "modules", "bins", "tags"}) {
        const Table* table = run.table(key);
        if (table != nullptr) return table;
    }
    return nullptr;
}

constexpr const char* deficit = "Below zero, since blocks came off that the tracker had not seen allocated.";

void add_table_figures(const Table& table, std::vector<Figure>& figures) {
    struct Source {
        const char* column;
        const char* title;
        Unit unit;
        const char* explanation;
    };
    static constexpr Source all_sources[] = {
        {"peak", "Recorded peak", Unit::bytes,
         "Bytes held at the recorded peak. A peak is recorded when the total doubles or passes a step, so "
         "that a sample can stand higher."},
        {"peak_blocks", "Recorded peak blocks", Unit::blocks, "Blocks held at the recorded peak."},
        {"current", "Held at the end", Unit::bytes, "Bytes not yet freed when the reports were written."},
        {"current_blocks", "Blocks at the end", Unit::blocks,
         "Blocks not yet freed when the reports were written."},
        {"cumulative", "Cumulative", Unit::bytes, "All bytes ever allocated, freed or not."},
        {"cumulative_blocks", "Allocations", Unit::blocks, "Blocks ever allocated."},
        {"requested", "Requested", Unit::bytes,
         "What callers asked for; the rest of the cumulative bytes is rounding."},
        {"mismatched", "Freed elsewhere", Unit::bytes,
         "Small blocks freed on another thread than their own."}};
    for (const Source& source : all_sources) {
        if (table.column(source.column) < 0) continue;
        const std::int64_t value = table.sum(source.column);
        figures.push_back(
            {source.column, source.title, value, source.unit, value < 0 ? deficit : source.explanation});
    }
}

void add_path_figures(const Paths& paths, std::vector<Figure>& figures) {
    figures.push_back({exact_peak, "Peak", paths.nodes.sum("peak"), Unit::bytes,
                       "The most bytes that the process ever held, with everybody's share at that moment."});
    figures.push_back({exact_peak_blocks, "Blocks at the peak", paths.nodes.sum("peak_blocks"), Unit::blocks,
                       "Blocks held at that moment."});
    const auto after = paths.totals.find("Peak milliseconds");
    if (after == paths.totals.end()) return;
    figures.push_back({"peak_milliseconds", "Peak after (ms)", after->second, Unit::blocks,
                       "When it was, counted from the start of the process."});
}

void add_auxiliary_figures(const Run& run, std::vector<Figure>& figures) {
    const Timeline* timeline = run.timeline(auxiliary_timeline);
    if (timeline == nullptr) return;
    for (const Series& series : timeline->series) {
        if (series.name == "resident") {
            figures.push_back({"resident", "Resident, highest sample", series.highest, Unit::bytes,
                               "Memory of the process in RAM, as the system counts it."});
        } else if (series.name == "commit_charge") {
            figures.push_back(
                {"commit", "Committed, highest sample", series.highest, Unit::bytes,
                 "Private memory that the process can write, touched or not, as the system counts it."});
        } else if (series.name == "page_faults") {
            figures.push_back({"page_faults", "Page faults", series.last, Unit::blocks,
                               "Page faults of the process until its last sample."});
        } else if (series.name == "profiler_allocated_outstanding") {
            figures.push_back({"tracker", "Tracker's own, highest sample", series.highest, Unit::bytes,
                               "Memory that the tracker itself held; it is in none of the tables."});
        }
    }
}

}  // namespace

bool grew_to_its_end(const Run& run) {
    const Table* table = whole_table(run);
    return table != nullptr && table->sum("current") > table->sum("peak");
}

std::optional<std::int64_t> peak_bytes(const Run& run) {
    if (run.paths) return run.paths->nodes.sum("peak");
    const Table* table = whole_table(run);
    if (table == nullptr) table = run.table("fast_leaks");
    if (table == nullptr) return std::nullopt;
    return std::max(table->sum("peak"), table->sum("current"));
}

std::optional<std::int64_t> leaked_bytes(const Run& run) {
    const Table* full = run.table("leaks");
    const Table* fast = run.table("fast_leaks");
    if (full == nullptr && fast == nullptr) return std::nullopt;
    return (full != nullptr ? full->sum("current") : 0) + (fast != nullptr ? fast->sum("current") : 0);
}

std::vector<Figure> summary(const Run& run) {
    std::vector<Figure> figures;
    if (run.paths) add_path_figures(*run.paths, figures);
    const Table* table = whole_table(run);
    if (table != nullptr) add_table_figures(*table, figures);
    const Timeline* timeline = run.timeline(module_timeline);
    if (timeline == nullptr) timeline = run.timeline(tag_timeline);
    if (timeline != nullptr) {
        const auto recorded = std::find_if(figures.begin(), figures.end(),
                                           [](const Figure& figure) { return figure.key == "peak"; });
        figures.insert(recorded == figures.end() ? recorded : recorded + 1,
                       {"highest_sample", "Highest sample", timeline->highest_sum, Unit::bytes,
                        "The most bytes that a sample of the timeline shows."});
    }
    if (run.peak_index) {
        figures.push_back({"peak_index", "Last peak at index", static_cast<std::int64_t>(*run.peak_index),
                           Unit::line,
                           "Sampling points before the latest recorded peak. When the host flushed a "
                           "higher peak earlier, the figures are of that one and this index is not."});
    }
    const std::optional<std::int64_t> leaked = leaked_bytes(run);
    if (leaked) {
        figures.push_back({"leaked", "Leaked", *leaked, Unit::bytes,
                           "Bytes that were never freed and that a call site answers for."});
    }
    add_auxiliary_figures(run, figures);
    return figures;
}

std::vector<std::string> tracked(const Run& run) {
    struct Source {
        const char* kind;
        const char* title;
    };
    static constexpr Source all_sources[] = {{"fileline", "call sites"},
                                             {module_timeline, "modules over time"},
                                             {"pbin_stats", "bins and tags"},
                                             {"leak_warning", "leaks"},
                                             {paths_kind, "call paths"},
                                             {"fast_leak_warning", "fast leaks"},
                                             {auxiliary_timeline, "process figures"}};
    std::vector<std::string> all;
    for (const Source& source : all_sources) {
        if (run.files.contains(source.kind)) all.emplace_back(source.title);
    }
    return all;
}

}  // namespace memview
