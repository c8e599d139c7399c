#include "tools/memview/page_data.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>
#include <unordered_map>

#include "tools/common/readable_names.h"
#include "tools/memview/resident_parts.h"
#include "tools/memview/units.h"
#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

using nlohmann::json;

// A name of a megabyte is no help to a reader, and a few of them would fill the page.
constexpr std::size_t longest_name = 16384;

// Each text of the page once, in the order of first use.
class Texts {
  public:
    std::size_t number_of(std::string_view text) {
        const auto [found, is_new] = numbers_.try_emplace(std::string(text), list_.size());
        if (is_new) list_.push_back(shortened(found->first, longest_name));
        return found->second;
    }
    // Of a function, whose name may be read otherwise.
    std::size_t number_of_function(std::string_view name) {
        const std::size_t number = number_of(name);
        const std::string readable = readable::name(name);
        if (readable != name) readable_[std::to_string(number)] = shortened(readable, longest_name);
        return number;
    }
    const json& list() const { return list_; }
    // By number, of those that are read otherwise.
    const json& readable() const { return readable_; }

  private:
    std::unordered_map<std::string, std::size_t> numbers_;
    json list_ = json::array();
    json readable_ = json::object();
};

const char* unit_name(Unit unit) {
    switch (unit) {
        case Unit::bytes:
            return "bytes";
        case Unit::blocks:
            return "blocks";
        case Unit::line:
            return "line";
        case Unit::thousandths:
            return "mib";
        case Unit::text:
        case Unit::address:
        case Unit::site:
            break;
    }
    return "text";
}

bool is_figure(Unit unit) {
    return unit == Unit::bytes || unit == Unit::blocks;
}

// The rows that stand highest by any figure, in the order of the table.
std::vector<std::size_t> shown_rows(const Table& table, std::size_t most) {
    std::vector<bool> shown(table.rows, table.rows <= most);
    for (const Column& column : table.columns) {
        if (table.rows <= most || column.spec.unit != Unit::bytes) continue;
        std::vector<std::uint32_t> rows(table.rows);
        std::iota(rows.begin(), rows.end(), 0);
        std::nth_element(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(most), rows.end(),
                         [&](std::uint32_t a, std::uint32_t b) {
                             return std::llabs(column.cells[a]) > std::llabs(column.cells[b]);
                         });
        for (std::size_t i = 0; i < most; ++i) shown[rows[i]] = true;
    }
    std::vector<std::size_t> rows;
    for (std::size_t row = 0; row < table.rows; ++row) {
        if (shown[row]) rows.push_back(row);
    }
    return rows;
}

json cell(const Column& column, std::size_t row, const Names& names, Texts& texts) {
    const std::int64_t value = column.cells[row];
    if (column.spec.key == std::string_view("function")) return texts.number_of_function(names.text(value));
    if (column.spec.unit == Unit::text) return texts.number_of(names.text(value));
    if (column.spec.unit == Unit::address) return texts.number_of(hex_address(value));
    return value;
}

json table_data(const Table& table, const Names& names, std::size_t most, Texts& texts) {
    const std::vector<std::size_t> rows = shown_rows(table, most);
    json columns = json::array();
    json cells = json::array();
    json rest = json::array();
    for (const Column& column : table.columns) {
        columns.push_back(
            {{"key", column.spec.key}, {"title", column.spec.title}, {"unit", unit_name(column.spec.unit)}});
        json values = json::array();
        std::int64_t sum_shown = 0;
        for (const std::size_t row : rows) {
            values.push_back(cell(column, row, names, texts));
            sum_shown += column.cells[row];
        }
        cells.push_back(std::move(values));
        rest.push_back(is_figure(column.spec.unit) ? json(table.sum(column.spec.key) - sum_shown) : json());
    }
    return {{"key", table.key},   {"columns", std::move(columns)},         {"cells", std::move(cells)},
            {"rows", table.rows}, {"rest_rows", table.rows - rows.size()}, {"rest", std::move(rest)}};
}

json chart_data(const Chart& chart, Texts& texts) {
    json series = json::array();
    json labels = json::array();
    for (const std::string& name : chart.series) series.push_back(texts.number_of(name));
    for (const std::string& label : chart.labels) labels.push_back(texts.number_of(label));
    json rows = json::array();
    for (const ChartRow& row : chart.rows) {
        json values = {row.index, row.label};
        for (const std::int64_t value : row.values) values.push_back(value);
        rows.push_back(std::move(values));
    }
    return {{"key", chart.key},         {"stacked", chart.stacked},    {"rest", chart.rest},
            {"samples", chart.samples}, {"series", std::move(series)}, {"labels", std::move(labels)},
            {"rows", std::move(rows)},  {"times", chart.times}};
}

json figures_data(const std::vector<Figure>& figures) {
    json all = json::array();
    for (const Figure& figure : figures) {
        all.push_back({{"key", figure.key},
                       {"title", figure.title},
                       {"value", figure.value},
                       {"unit", unit_name(figure.unit)},
                       {"explanation", figure.explanation}});
    }
    return all;
}

// Milliseconds; the recorded peak lies at a sampling point.
json clock_data(const PageProcess& process) {
    if (process.clock == nullptr) return nullptr;
    const std::vector<std::int64_t>& times = process.clock->milliseconds;
    const bool has_peak = process.peak_index && *process.peak_index < times.size();
    return {{"start", process.clock->start},
            {"process", process.clock->process},
            {"parent", process.clock->parent},
            {"length", times.empty() ? 0 : times.back()},
            {"peak", has_peak ? json(times[*process.peak_index]) : json()}};
}

json frame_data(const PathTree::Frame& frame, const Names& names, Texts& texts) {
    const auto number = [&](std::int64_t name) { return texts.number_of(names.text(name)); };
    return {texts.number_of_function(frame_name(frame.place, names)), number(frame.place.file),
            frame.place.line, number(frame.place.module), frame.filtered ? 1 : 0};
}

// A parent is given by its distance, which is short where paths run straight.
json flame_graph_data(const FlameData& flame, const Names& names, Texts& texts) {
    json frames = json::array();
    for (const PathTree::Frame& frame : flame.tree.frames())
        frames.push_back(frame_data(frame, names, texts));
    json parents = json::array();
    json node_frames = json::array();
    const std::vector<PathTree::Node>& nodes = flame.tree.nodes();
    for (std::size_t node = 0; node < nodes.size(); ++node) {
        parents.push_back(node - nodes[node].parent);
        node_frames.push_back(nodes[node].frame);
    }
    json measures = json::array();
    for (std::size_t i = 0; i < flame.measures.size(); ++i) {
        const auto& [key, title, unit] = flame.measures[i];
        json own = json::array();
        for (std::size_t node = 0; node < nodes.size(); ++node) own.push_back(flame.tree.own(node, i));
        measures.push_back(
            {{"key", key}, {"title", title}, {"unit", unit_name(unit)}, {"own", std::move(own)}});
    }
    return {{"frames", std::move(frames)},
            {"parents", std::move(parents)},
            {"node_frames", std::move(node_frames)},
            {"measures", std::move(measures)},
            {"comparison", flame.is_comparison}};
}

json limits_data(const Resident& resident) {
    json limits = json::array();
    const auto add = [&](const char* title, const std::optional<std::int64_t>& bytes) {
        if (bytes) limits.push_back({{"title", title}, {"bytes", *bytes}});
    };
    add("limit of the cgroup", resident.cgroup_limit);
    add("limit of the address space", resident.address_space_limit);
    return limits;
}

json resident_data(const Resident* resident) {
    if (resident == nullptr) return nullptr;
    json moments = json::array();
    for (const ResidentMoment& moment : resident_moments(*resident)) {
        json steps = json::array();
        for (const ResidentStep& step : resident_steps(*moment.point))
            steps.push_back({{"title", step.title}, {"bytes", step.bytes}, {"advice", step.advice}});
        moments.push_back({{"title", moment.title},
                           {"resident", moment.point->parts[RESIDENT]},
                           {"steps", std::move(steps)}});
    }
    return {{"moments", std::move(moments)}, {"limits", limits_data(*resident)}};
}

json process_data(const PageProcess& process, const Names& names, const PageLimits& limits, Texts& texts) {
    json tables = json::array();
    for (const Table* table : process.tables) tables.push_back(table_data(*table, names, limits.rows, texts));
    json charts = json::array();
    for (const Chart& chart : process.charts) charts.push_back(chart_data(chart, texts));
    return {{"name", process.name},
            {"folder", process.folder},
            {"tracked", process.tracked},
            {"figures", figures_data(process.figures)},
            {"clock", clock_data(process)},
            {"resident", resident_data(process.resident)},
            {"peak_index", process.peak_index ? json(*process.peak_index) : json()},
            {"tables", std::move(tables)},
            {"charts", std::move(charts)},
            {"flame", process.flame ? flame_graph_data(*process.flame, names, texts) : json()}};
}

std::string without_angle_brackets(const std::string& text) {
    std::string out;
    out.reserve(text.size() + text.size() / 16);
    for (const char c : text) {
        if (c == '<') {
            out += "\\u003c";
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

std::string page_data(const Page& page, const PageLimits& limits) {
    Texts texts;
    json processes = json::array();
    for (const PageProcess& process : page.processes) {
        processes.push_back(process_data(process, page.names, limits, texts));
    }
    const json data = {{"title", page.title},
                       {"left_out", page.left_out},
                       {"processes", std::move(processes)},
                       {"texts", texts.list()},
                       {"readable", texts.readable()}};
    // Names need not be UTF-8; what is not becomes the replacement character.
    return without_angle_brackets(data.dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace memview
