#include <cctype>

#include "tools/memview/export.h"
#include "tools/memview/json_rows.h"
#include "tools/memview/summary.h"
#include "tools/reports/fields.h"
#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

using nlohmann::ordered_json;

ordered_json timeline_json(const Timeline& timeline) {
    ordered_json series = ordered_json::array();
    for (const Series& one : timeline.series) {
        series.push_back({{"name", one.name}, {"highest", one.highest}, {"last", one.last}});
    }
    return {{"samples", timeline.samples}, {"series", std::move(series)}};
}

// The points that were taken apart.
ordered_json resident_json(const Resident& resident) {
    ordered_json points = ordered_json::array();
    for (const ResidentPoint& point : resident.points) {
        if (!point.is_full) continue;
        ordered_json one = {{"milliseconds", point.milliseconds}, {"event", point.event}};
        const auto columns = mem_report::resident.columns.subspan(mem_column::columns_before_parts);
        for (std::size_t part = 0; part < columns.size(); ++part) one[columns[part].key] = point.parts[part];
        points.push_back(std::move(one));
    }
    return points;
}

void write_process(const Run& run, const Names& names, std::ostream& out) {
    ordered_json totals = ordered_json::object();
    for (const Figure& figure : summary(run)) totals[figure.key] = figure.value;
    ordered_json timelines = ordered_json::object();
    for (const auto& [kind, timeline] : run.timelines) timelines[kind] = timeline_json(timeline);
    out << "{\"name\": " << json_text(run.name) << ", \"folder\": " << json_text(run.folder)
        << ", \"tracked\": " << json_text(tracked(run)) << ",\n\"totals\": " << json_text(totals)
        << ",\n\"timelines\": " << json_text(timelines);
    if (run.resident) out << ",\n\"resident\": " << json_text(resident_json(*run.resident));
    for (const Table& table : run.tables) {
        const bool same_in_mib = table.key.ends_with("_mb");
        if (same_in_mib) continue;
        out << ",\n";
        write_rows(table, names, out);
    }
    if (run.paths) {
        out << ",\n\"paths\": {\"totals\": " << json_text(run.paths->totals) << ",\n";
        write_rows(run.paths->frames, names, out);
        out << ",\n";
        write_rows(run.paths->nodes, names, out);
        out << "}";
    }
    out << "}";
}

}  // namespace

void export_json(const Folder& folder, std::ostream& out) {
    out << "{\"format\": \"ktl_memview\", \"version\": 1, \"left_out\": " << json_text(folder.left_out)
        << ",\n\"processes\": [";
    bool first = true;
    for (const Run& run : folder.runs) {
        out << (first ? "\n" : ",\n");
        first = false;
        write_process(run, *folder.names, out);
    }
    out << "]}\n";
}

}  // namespace memview
