#include "tools/memview/chart.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <unordered_map>

#include "tools/reports/report_kinds.h"
#include "tools/reports/series_reader.h"

namespace memview {
namespace {

constexpr std::size_t most_series = 18;
constexpr std::size_t largest_loose_stretch = 64;

std::int64_t sum(const ChartRow& row) {
    return std::accumulate(row.values.begin(), row.values.end(), std::int64_t{0});
}

// Where each column of the report goes: its place in the chart, or the sum in place 0.
struct Selection {
    std::vector<std::string> names;
    std::vector<std::size_t> place_of;
    bool rest = false;
};

constexpr std::size_t nowhere = SIZE_MAX;

// The report's own sum of the series that it does not name; it is there even when there are none.
bool is_empty_rest(const Timeline& timeline, std::size_t i) {
    const Series& series = timeline.series[i];
    return i == 0 && series.name == rest_series &&
           std::all_of(series.stretches.begin(), series.stretches.end(),
                       [](std::int64_t value) { return value == 0; });
}

// The series with the highest values by name, all others in one.
Selection select_highest(const Timeline& timeline) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < timeline.series.size(); ++i) {
        if (!is_empty_rest(timeline, i)) order.push_back(i);
    }
    const auto is_rest = [&](std::size_t i) { return timeline.series[i].name == rest_series && i == 0; };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        if (is_rest(a) != is_rest(b)) return is_rest(a);
        return timeline.series[a].highest < timeline.series[b].highest;
    });
    const std::size_t rest = order.size() > most_series ? order.size() - most_series : 0;
    Selection selection;
    selection.place_of.resize(timeline.series.size(), nowhere);
    selection.rest = rest > 0;
    if (selection.rest) {
        const bool from_report = rest == 1 && is_rest(order.front());
        selection.names.push_back(from_report ? "all other series"
                                              : "the other " + std::to_string(rest) + " series");
    }
    for (std::size_t i = 0; i < order.size(); ++i) {
        selection.place_of[order[i]] = i < rest ? 0 : selection.names.size();
        if (i >= rest) selection.names.push_back(timeline.series[order[i]].name);
    }
    return selection;
}

Selection select_process(const Timeline& timeline) {
    Selection selection;
    for (const Series& series : timeline.series) {
        const bool shown = series.name == "resident" || series.name == "commit_charge" ||
                           series.name == "page_faults" || series.name == "profiler_allocated_outstanding";
        selection.place_of.push_back(shown ? selection.names.size() : nowhere);
        if (shown) selection.names.push_back(series.name);
    }
    return selection;
}

class LabelNumbers {
  public:
    explicit LabelNumbers(std::vector<std::string>& labels) : labels_(labels) {}

    std::uint32_t of(std::string_view label) {
        if (!labels_.empty() && labels_[last_] == label) return last_;
        const auto [found, is_new] =
            numbers_.try_emplace(std::string(label), static_cast<std::uint32_t>(labels_.size()));
        if (is_new) labels_.emplace_back(label);
        last_ = found->second;
        return last_;
    }

  private:
    std::vector<std::string>& labels_;
    std::unordered_map<std::string, std::uint32_t> numbers_;
    std::uint32_t last_ = 0;
};

Chart read_chart(const Timeline& timeline, std::string_view kind, const Selection& selection,
                 std::size_t most_stretches) {
    Chart chart;
    chart.series = selection.names;
    chart.rest = selection.rest;
    RowThinner thinner(most_stretches);
    LabelNumbers labels(chart.labels);
    SeriesVisitor visitor;
    visitor.header = [](const std::vector<std::string>&) {};
    visitor.row = [&](std::string_view label, std::span<const std::int64_t> values) {
        ChartRow row{chart.samples++, labels.of(label), std::vector<std::int64_t>(selection.names.size())};
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (selection.place_of[i] != nowhere) row.values[selection.place_of[i]] += values[i];
        }
        thinner.add(std::move(row));
    };
    // The first reading has already said, or refused, what is wrong with the file.
    Problems left_out(true);
    scan_series(timeline.file, kind, left_out, visitor);
    chart.rows = thinner.take();
    return chart;
}

std::vector<std::int64_t> times_of_rows(const Chart& chart, const std::optional<SampleClock>& clock) {
    std::vector<std::uint64_t> indexes;
    for (const ChartRow& row : chart.rows) indexes.push_back(row.index);
    return clock ? clock->times_of(indexes, chart.samples) : std::vector<std::int64_t>();
}

// What the system and the allocator say at every sampling point, on top of each other.
Chart resident_chart(const Resident& resident, std::size_t most_stretches) {
    Chart chart;
    chart.key = "resident";
    chart.series = {"all else", "tables of the allocator", "the tracker", "freed, kept by the allocator",
                    "blocks in use"};
    chart.labels = {""};
    RowThinner thinner(most_stretches);
    for (const ResidentPoint& point : resident.points) {
        const auto& parts = point.parts;
        const std::int64_t blocks = parts[BLOCKS] + parts[ROUNDING] + parts[UNKNOWN_BLOCKS];
        const std::int64_t kept = parts[KEPT_BY_THREADS] + parts[KEPT_IN_BETWEEN] + parts[KEPT_FREE];
        const std::int64_t tracker = parts[TRACKER_BLOCKS] + parts[TRACKER_MAPPINGS];
        const std::int64_t known = blocks + kept + tracker + parts[ALLOCATOR_TABLES];
        thinner.add({chart.samples++,
                     0,
                     {std::max<std::int64_t>(parts[RESIDENT] - known, 0), parts[ALLOCATOR_TABLES], tracker,
                      kept, std::max<std::int64_t>(blocks, 0)}});
    }
    chart.rows = thinner.take();
    for (const ChartRow& row : chart.rows) chart.times.push_back(resident.points[row.index].milliseconds);
    return chart;
}

}  // namespace

void RowThinner::thin(Stretch& stretch) {
    if (stretch.size() < 3) return;
    std::set<std::size_t> keep;
    const auto by_sum = [](const ChartRow& a, const ChartRow& b) { return sum(a) < sum(b); };
    const auto [lowest, highest] = std::minmax_element(stretch.begin(), stretch.end(), by_sum);
    keep.insert(static_cast<std::size_t>(lowest - stretch.begin()));
    keep.insert(static_cast<std::size_t>(highest - stretch.begin()));
    for (std::size_t i = 0; i < stretch.front().values.size(); ++i) {
        const auto top =
            std::max_element(stretch.begin(), stretch.end(),
                             [i](const ChartRow& a, const ChartRow& b) { return a.values[i] < b.values[i]; });
        keep.insert(static_cast<std::size_t>(top - stretch.begin()));
    }
    Stretch kept;
    for (const std::size_t i : keep) kept.push_back(std::move(stretch[i]));
    stretch = std::move(kept);
}

void RowThinner::join() {
    for (std::size_t i = 0; i < stretches_.size() / 2; ++i) {
        Stretch joined = std::move(stretches_[2 * i]);
        std::move(stretches_[2 * i + 1].begin(), stretches_[2 * i + 1].end(), std::back_inserter(joined));
        thin(joined);
        stretches_[i] = std::move(joined);
    }
    stretches_.resize(stretches_.size() / 2);
    length_ *= 2;
}

void RowThinner::add(ChartRow row) {
    if (stretches_.empty() || in_last_ == length_) {
        if (!stretches_.empty()) thin(stretches_.back());
        if (stretches_.size() == most_) join();
        stretches_.emplace_back();
        in_last_ = 0;
    }
    ++in_last_;
    stretches_.back().push_back(std::move(row));
    if (stretches_.back().size() >= largest_loose_stretch) thin(stretches_.back());
}

std::vector<ChartRow> RowThinner::take() {
    std::vector<ChartRow> rows;
    if (!stretches_.empty()) thin(stretches_.back());
    for (Stretch& stretch : stretches_) std::move(stretch.begin(), stretch.end(), std::back_inserter(rows));
    return rows;
}

std::vector<Chart> read_charts(const Run& run, std::size_t most_stretches) {
    struct Source {
        const char* key;
        const char* kind;
        const char* kind_instead;
    };
    // The plain form has already summed up all but the highest series, and is much the smaller file.
    static constexpr Source all_sources[] = {{"modules", module_timeline, module_timeline_detailed},
                                             {"tags", tag_timeline, tag_timeline},
                                             {"process", auxiliary_timeline, auxiliary_timeline}};
    std::vector<Chart> charts;
    for (const Source& source : all_sources) {
        const char* kind = run.timeline(source.kind) != nullptr ? source.kind : source.kind_instead;
        const Timeline* timeline = run.timeline(kind);
        if (timeline == nullptr || timeline->samples == 0) continue;
        const bool process = kind == std::string_view(auxiliary_timeline);
        Chart chart = read_chart(
            *timeline, kind, process ? select_process(*timeline) : select_highest(*timeline), most_stretches);
        chart.key = source.key;
        chart.stacked = !process;
        chart.times = times_of_rows(chart, run.clock);
        charts.push_back(std::move(chart));
    }
    if (run.resident && run.resident->points.size() > 1)
        charts.push_back(resident_chart(*run.resident, most_stretches));
    return charts;
}

}  // namespace memview
