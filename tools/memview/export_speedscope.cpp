#include <map>
#include <tuple>

#include "tools/memview/export.h"
#include "tools/memview/json_rows.h"

namespace memview {
namespace {

using nlohmann::ordered_json;

// The frames that all profiles of the file share, each once.
class SharedFrames {
  public:
    std::size_t number_of(const std::string& name, const std::string& file, std::int64_t line) {
        const auto [found, is_new] = m_numbers.try_emplace({name, file, line}, m_frames.size());
        if (is_new) {
            ordered_json frame = {{"name", name}};
            if (!file.empty()) frame["file"] = file;
            if (line > 0) frame["line"] = line;
            m_frames.push_back(std::move(frame));
        }
        return found->second;
    }
    ordered_json take() { return std::move(m_frames); }

  private:
    std::map<std::tuple<std::string, std::string, std::int64_t>, std::size_t> m_numbers;
    ordered_json m_frames = ordered_json::array();
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

ordered_json make_profile(const Run& run, const Measure& measure, const Names& names, SharedFrames& frames) {
    const Table& sites = sites_of(run);
    const std::vector<std::int64_t>& values = *sites.cells(measure.column);
    ordered_json samples = ordered_json::array();
    ordered_json weights = ordered_json::array();
    std::int64_t total = 0;
    for (std::size_t row = 0; row < sites.rows; ++row) {
        if (values[row] <= 0) continue;
        const SiteFrames site = frames_of(sites, row, names);
        samples.push_back({frames.number_of(site.module, "", 0), frames.number_of(site.file, "", 0),
                           frames.number_of(site.function, site.file, site.line)});
        weights.push_back(values[row]);
        total += values[row];
    }
    return {{"type", "sampled"},
            {"name", run.name + ": " + measure.title},
            {"unit", measure.unit},
            {"startValue", 0},
            {"endValue", total},
            {"samples", std::move(samples)},
            {"weights", std::move(weights)}};
}

}  // namespace

void export_speedscope(const Folder& folder, std::ostream& out) {
    SharedFrames frames;
    ordered_json profiles = ordered_json::array();
    for (const Run& run : folder.runs) {
        for (const Measure& measure : MEASURES)
            profiles.push_back(make_profile(run, measure, folder.names, frames));
    }
    out << json_text({{"$schema", "https://www.speedscope.app/file-format-schema.json"},
                      {"exporter", "ktl_memview"},
                      {"name", folder.runs.front().name},
                      {"activeProfileIndex", 0},
                      {"shared", {{"frames", frames.take()}}},
                      {"profiles", std::move(profiles)}})
        << "\n";
}

}  // namespace memview
