#include "tools/memview/export.h"
#include "tools/memview/json_rows.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

// The frames that all profiles of the file share, each once. Modules and files are frames that are nothing
// but a name.
class SharedFrames {
  public:
    explicit SharedFrames(const Names& names) : m_names(names) {}

    std::size_t of_name(std::int64_t name) { return number_of({name}); }
    std::size_t of_function(const Place& site) {
        return number_of({NO_MODULE, site.file, site.function, site.line});
    }
    const std::string& text() const { return m_text; }

  private:
    static constexpr std::int64_t NO_MODULE = -1;

    std::size_t number_of(const Place& frame) {
        const auto [found, is_new] = m_numbers.try_emplace(frame, m_numbers.size());
        if (is_new) m_text += (m_text.empty() ? "\n" : ",\n") + json_text(frame_json(frame));
        return found->second;
    }

    nlohmann::ordered_json frame_json(const Place& frame) const {
        if (frame.module != NO_MODULE) return {{"name", m_names.text(frame.module)}};
        nlohmann::ordered_json json = {{"name", m_names.text(frame.function)},
                                       {"file", m_names.text(frame.file)}};
        if (frame.line > 0) json["line"] = frame.line;
        return json;
    }

    const Names& m_names;
    std::unordered_map<Place, std::size_t, PlaceHash> m_numbers;
    std::string m_text;
};

struct Measure {
    const char* column;
    const char* title;
    const char* unit;
};

constexpr Measure MEASURES[] = {{"peak", "peak bytes", "bytes"},
                                {"cumulative", "cumulative bytes", "bytes"},
                                {"peak_blocks", "peak blocks", "none"},
                                {"cumulative_blocks", "cumulative blocks", "none"}};

// An array with what `append` writes of each row of which the measure says something.
template <typename Append>
void write_array(const Cells& values, std::size_t rows, const Append& append, std::ostream& out) {
    std::string element = "[";
    for (std::size_t row = 0; row < rows; ++row) {
        if (values[row] <= 0) continue;
        append(row, element);
        out << element;
        element = ",";
    }
    if (element == "[") out << element;
    out << "]";
}

void write_profile(const Run& run, const Measure& measure, Names& names, SharedFrames& frames,
                   std::ostream& out) {
    const Table& sites = sites_of(run);
    const SiteFrames places(sites, names);
    const Cells& values = *sites.cells(measure.column);
    std::int64_t total = 0;
    out << "{\"type\": \"sampled\", \"name\": " << json_text(run.name + ": " + measure.title)
        << ", \"unit\": \"" << measure.unit << "\",\n\"samples\": ";
    write_array(
        values, sites.rows,
        [&](std::size_t row, std::string& element) {
            const Place site = places[row];
            element += '[';
            append_number(element, static_cast<std::int64_t>(frames.of_name(site.module)));
            element += ',';
            append_number(element, static_cast<std::int64_t>(frames.of_name(site.file)));
            element += ',';
            append_number(element, static_cast<std::int64_t>(frames.of_function(site)));
            element += ']';
        },
        out);
    out << ",\n\"weights\": ";
    write_array(
        values, sites.rows,
        [&](std::size_t row, std::string& element) {
            append_number(element, values[row]);
            total += values[row];
        },
        out);
    out << ",\n\"startValue\": 0, \"endValue\": " << total << "}";
}

}  // namespace

void export_speedscope(const Folder& folder, std::ostream& out) {
    SharedFrames frames(*folder.names);
    out << R"({"$schema": "https://www.speedscope.app/file-format-schema.json", "exporter": "ktl_memview", )"
        << "\"name\": " << json_text(folder.runs.front().name)
        << ", \"activeProfileIndex\": 0,\n\"profiles\": [";
    const char* before = "\n";
    for (const Run& run : folder.runs) {
        for (const Measure& measure : MEASURES) {
            out << before;
            write_profile(run, measure, *folder.names, frames, out);
            before = ",\n";
        }
    }
    out << "],\n\"shared\": {\"frames\": [" << frames.text() << "]}}\n";
}

}  // namespace memview
