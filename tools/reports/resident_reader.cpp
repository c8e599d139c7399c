#include "tools/reports/resident_reader.h"

#include <algorithm>

#include "tools/reports/fields.h"
#include "tools/reports/line_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/report_parts.h"
#include "tools/reports/table_rows.h"

namespace memview {
namespace {

constexpr std::size_t most_samples = 4000;

std::optional<std::int64_t> read_limit(LineReader& reader, std::string_view title) {
    std::string_view line;
    std::string_view key;
    std::string_view value;
    std::int64_t limit = 0;
    if (reader.next(line)) {
        Fields fields(line);
        const bool is_pair = fields.next(key) && fields.next(value) && fields.at_end() && key == title;
        if (is_pair && value == "none") return std::nullopt;
        if (is_pair && parse_number(value, limit)) return limit;
    }
    throw ReportError(
        {reader.path(), reader.number(), in_quotes(line) + " is not the " + std::string(title)});
}

bool read_point(std::string_view line, ResidentPoint& point) {
    Fields fields(line);
    std::string_view kind;
    if (!fields.next_number(point.milliseconds) || !fields.next_number(point.event) || !fields.next(kind))
        return false;
    point.is_full = kind == "full";
    if (!point.is_full && kind != "sample") return false;
    for (std::int64_t& value : point.parts) {
        std::string_view field;
        if (!fields.next(field)) return false;
        const bool unknown = !point.is_full && field == "-";
        if (!unknown && !parse_number(field, value)) return false;
    }
    return fields.at_end();
}

// Of each two samples in a row the one with less in memory goes.
void thin(std::vector<ResidentPoint>& points) {
    std::vector<ResidentPoint> kept;
    for (ResidentPoint& point : points) {
        const bool pairs = kept.size() % 2 == 1 && !kept.back().is_full && !point.is_full;
        if (!pairs)
            kept.push_back(point);
        else if (point.parts[RESIDENT] > kept.back().parts[RESIDENT])
            kept.back() = point;
    }
    points = std::move(kept);
}

}  // namespace

Resident read_resident(const std::string& path, Problems& problems) {
    LineReader reader(path);
    Resident resident;
    read_head(reader, mem_report::resident.title);
    resident.cgroup_limit = read_limit(reader, "Limit of the cgroup");
    resident.address_space_limit = read_limit(reader, "Limit of the address space");
    std::string_view empty;
    reader.next(empty);
    expect_columns(reader, mem_report::resident.columns);
    std::size_t thinned_at = most_samples;
    const auto read_row = [&](std::string_view line) {
        ResidentPoint point;
        if (!read_point(line, point) || !reader.terminated()) return false;
        resident.points.push_back(point);
        if (resident.points.size() < thinned_at) return true;
        thin(resident.points);
        thinned_at = std::max(2 * resident.points.size(), most_samples);
        return true;
    };
    const RowReader rows{read_row, [&](std::string_view line) {
                             return reader.terminated() ? in_quotes(line) + " is no point of resident memory"
                                                        : std::string("the file is cut inside this row");
                         }};
    read_rows(reader, rows, true, problems);
    return resident;
}

}  // namespace memview
