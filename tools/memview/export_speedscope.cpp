#include <functional>
#include <memory>

#include "tools/memview/export.h"
#include "tools/memview/json_rows.h"
#include "tools/memview/path_stacks.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

// The frames that all profiles of the file share, each once. Modules and files are frames that are nothing
// but a name.
class SharedFrames {
  public:
    explicit SharedFrames(const Names& names) : names_(names) {}

    std::size_t of_name(std::int64_t name) { return number_of({name}); }
    std::size_t of_function(const Place& site) {
        return number_of({no_module, site.file, site.function, site.line});
    }
    const std::string& text() const { return text_; }

  private:
    static constexpr std::int64_t no_module = -1;

    std::size_t number_of(const Place& frame) {
        const auto [found, is_new] = numbers_.try_emplace(frame, numbers_.size());
        if (is_new) text_ += (text_.empty() ? "\n" : ",\n") + json_text(frame_json(frame));
        return found->second;
    }

    nlohmann::ordered_json frame_json(const Place& frame) const {
        if (frame.module != no_module) return {{"name", names_.text(frame.module)}};
        nlohmann::ordered_json json = {{"name", names_.text(frame.function)},
                                       {"file", names_.text(frame.file)}};
        if (frame.line > 0) json["line"] = frame.line;
        return json;
    }

    const Names& names_;
    std::unordered_map<Place, std::size_t, PlaceHash> numbers_;
    std::string text_;
};

struct Measure {
    const char* column;
    const char* title;
    const char* unit;
};

constexpr Measure all_measures[] = {{"peak", "peak bytes", "bytes"},
                                    {"cumulative", "cumulative bytes", "bytes"},
                                    {"peak_blocks", "peak blocks", "none"},
                                    {"cumulative_blocks", "cumulative blocks", "none"},
                                    {"temporary_blocks", "temporary blocks", "none"}};

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

// What a profile is made of: rows with a figure and a stack each.
struct Samples {
    std::size_t rows;
    std::function<const Cells*(const char* column)> figures;                       // null when there is none
    std::function<void(std::size_t row, std::vector<std::size_t>& frames)> stack;  // from the outside in
};

Samples samples_of_paths(const Paths& paths, Names& names, SharedFrames& frames) {
    const auto stacks = std::make_shared<PathStacks>(paths, names);
    return {paths.nodes.rows, [&paths](const char* column) { return paths.nodes.cells(column); },
            [stacks, &frames](std::size_t row, std::vector<std::size_t>& stack) {
                for (const std::uint32_t level : stacks->rows(row + 1))
                    stack.push_back(frames.of_function(stacks->place(level)));
            }};
}

Samples samples_of_sites(const Table& sites, Names& names, SharedFrames& frames) {
    const auto places = std::make_shared<SiteFrames>(sites, names);
    return {sites.rows, [&sites](const char* column) { return sites.cells(column); },
            [places, &frames](std::size_t row, std::vector<std::size_t>& stack) {
                const Place site = (*places)[row];
                stack = {frames.of_name(site.module), frames.of_name(site.file), frames.of_function(site)};
            }};
}

void write_profile(const std::string& name, const Measure& measure, const Samples& samples,
                   std::ostream& out) {
    const Cells& values = *samples.figures(measure.column);
    std::int64_t total = 0;
    std::vector<std::size_t> stack;
    out << "{\"type\": \"sampled\", \"name\": " << json_text(name + ": " + measure.title) << ", \"unit\": \""
        << measure.unit << "\",\n\"samples\": ";
    write_array(
        values, samples.rows,
        [&](std::size_t row, std::string& element) {
            stack.clear();
            samples.stack(row, stack);
            const char* before = "[";
            for (const std::size_t frame : stack) {
                element += before;
                append_number(element, static_cast<std::int64_t>(frame));
                before = ",";
            }
            element += ']';
        },
        out);
    out << ",\n\"weights\": ";
    write_array(
        values, samples.rows,
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
        const Samples samples = run.paths ? samples_of_paths(*run.paths, *folder.names, frames)
                                          : samples_of_sites(sites_of(run), *folder.names, frames);
        for (const Measure& measure : all_measures) {
            if (samples.figures(measure.column) == nullptr) continue;
            out << before;
            write_profile(run.name, measure, samples, out);
            before = ",\n";
        }
    }
    out << "],\n\"shared\": {\"frames\": [" << frames.text() << "]}}\n";
}

}  // namespace memview
