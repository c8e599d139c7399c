#include <algorithm>
#include <array>
#include <span>
#include <unordered_map>

#include "tools/memview/export.h"
#include "tools/memview/gzip.h"
#include "tools/memview/path_stacks.h"
#include "tools/memview/profile.pb.h"
#include "tools/reports/exact_peak.h"

namespace memview {
namespace {

struct SampleType {
    const char* column;
    const char* name;
    const char* unit;
};

constexpr int samples_in_a_part = 4096;

constexpr SampleType types[] = {
    {"current_blocks", "inuse_objects", "count"},    {"current", "inuse_space", "bytes"},
    {"cumulative_blocks", "alloc_objects", "count"}, {"cumulative", "alloc_space", "bytes"},
    {"peak_blocks", "peak_objects", "count"},        {"peak", "peak_space", "bytes"}};

// Serialised messages that lie end to end are one message, so the profile is written in parts: as a whole, a
// large run would take several times the memory of its reports.
class Profile {
  public:
    Profile(Names& names, std::ostream& out) : names_(names), gzip_(out) {
        string_number(0);
        for (const SampleType& type : types) {
            pprof::ValueType* added = part_.add_sample_type();
            added->set_type(literal(type.name));
            added->set_unit(literal(type.unit));
        }
        part_.mutable_period_type()->set_type(literal("space"));
        part_.mutable_period_type()->set_unit(literal("bytes"));
        part_.set_period(1);  // every allocation is in it
        part_.set_default_sample_type(literal("peak_space"));
    }

    void add(const Run& run) {
        process_ = literal(run.name);
        if (run.paths) {
            add_paths(*run.paths);
        } else {
            add_sites(sites_of(run));
        }
    }

    void finish() {
        write_part();
        gzip_.finish();
    }

  private:
    void add_sites(const Table& sites) {
        const SiteFrames frames(sites, names_);
        const Cells& address = *sites.cells("address");
        add_samples(sites, [&](std::size_t row, pprof::Sample& sample) {
            sample.add_location_id(add_location(address[row], std::array{frames[row]}));
        });
    }

    // A location for each frame, the leaf first; its lines are the functions that it was inlined into.
    void add_paths(const Paths& paths) {
        PathStacks stacks(paths, names_);
        const Cells& address = *paths.frames.cells("address");
        std::vector<std::uint64_t> locations(paths.first_level.size());  // by frame; 0 is not yet there
        add_samples(paths.nodes, [&](std::size_t row, pprof::Sample& sample) {
            for (const std::uint32_t frame : stacks.frames(row + 1)) {
                std::uint64_t& location = locations[frame];
                if (location == 0) {
                    std::vector<Place> levels;
                    for (const std::uint32_t level : stacks.levels(frame))
                        levels.push_back(stacks.place(level));
                    location = add_location(frame == 0 ? 0 : address[paths.first_level[frame]], levels);
                }
                sample.add_location_id(location);
            }
        });
    }

    // Of each row that has a figure; `add_stack` gives the sample its locations.
    template <class AddStack>
    void add_samples(const Table& table, const AddStack& add_stack) {
        std::vector<const Cells*> figures;
        for (const SampleType& type : types) figures.push_back(table.cells(meant_column(table, type.column)));
        const std::int64_t key = literal("process");
        for (std::size_t row = 0; row < table.rows; ++row) {
            const auto is_zero = [row](const Cells* cells) { return (*cells)[row] == 0; };
            if (std::all_of(figures.begin(), figures.end(), is_zero)) continue;
            pprof::Sample& sample = *part_.add_sample();
            for (const Cells* cells : figures) sample.add_value((*cells)[row]);
            add_stack(row, sample);
            pprof::Label* label = sample.add_label();
            label->set_key(key);
            label->set_str(process_);
            if (part_.sample_size() == samples_in_a_part) write_part();
        }
    }

    // Strings of the format are UTF-8; bytes that are none become question marks.
    static std::string utf8(const std::string& text) {
        std::string out = text;
        for (std::size_t i = 0; i < out.size();) {
            const std::size_t size = sequence_size(out, i);
            if (size == 0) out[i] = '?';
            i += size == 0 ? 1 : size;
        }
        return out;
    }

    // Of the character that begins at `at`; 0 when none does.
    static std::size_t sequence_size(const std::string& text, std::size_t at) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const std::size_t size = lead < 0x80                   ? 1
                                 : lead >= 0xc2 && lead < 0xe0 ? 2
                                 : (lead & 0xf0) == 0xe0       ? 3
                                 : lead >= 0xf0 && lead < 0xf5 ? 4
                                                               : 0;
        if (size == 0 || at + size > text.size()) return 0;
        for (std::size_t i = 1; i < size; ++i) {
            if ((static_cast<unsigned char>(text[at + i]) & 0xc0) != 0x80) return 0;
        }
        return size;
    }

    void write_part() {
        part_.SerializeToString(&serialised_);
        gzip_.write(serialised_);
        part_.Clear();
    }

    std::int64_t literal(std::string_view text) { return string_number(names_.id_of(text)); }

    std::int64_t string_number(std::int64_t name) {
        const auto [found, is_new] = strings_.try_emplace(name, strings_.size());
        if (is_new) part_.add_string_table(utf8(std::string(names_.text(name))));
        return static_cast<std::int64_t>(found->second);
    }

    // The reports do not say where a module lay, so its range stays open.
    std::uint64_t mapping_number(std::int64_t module) {
        const auto [found, is_new] = mappings_.try_emplace(module, mappings_.size() + 1);
        if (is_new) {
            pprof::Mapping* mapping = part_.add_mapping();
            mapping->set_id(found->second);
            mapping->set_filename(string_number(module));
            mapping->set_has_functions(true);
            mapping->set_has_filenames(true);
            mapping->set_has_line_numbers(true);
        }
        return found->second;
    }

    std::uint64_t function_number(const Place& site) {
        const auto [found, is_new] =
            functions_.try_emplace({0, site.file, site.function, 0}, functions_.size() + 1);
        if (is_new) {
            pprof::Function* function = part_.add_function();
            function->set_id(found->second);
            function->set_name(string_number(site.function));
            function->set_system_name(string_number(site.function));
            function->set_filename(string_number(site.file));
        }
        return found->second;
    }

    // The innermost place first.
    std::uint64_t add_location(std::int64_t address, std::span<const Place> places) {
        pprof::Location* location = part_.add_location();
        location->set_id(++locations_);
        location->set_mapping_id(mapping_number(places.front().module));
        location->set_address(static_cast<std::uint64_t>(address));
        for (const Place& place : places) {
            pprof::Line* line = location->add_line();
            line->set_function_id(function_number(place));
            line->set_line(place.line);
        }
        return locations_;
    }

    Names& names_;
    Gzip gzip_;
    pprof::Profile part_;
    std::string serialised_;
    std::int64_t process_ = 0;
    std::uint64_t locations_ = 0;
    std::unordered_map<std::int64_t, std::size_t> strings_;  // by number of Names
    std::unordered_map<std::int64_t, std::size_t> mappings_;
    std::unordered_map<Place, std::size_t, PlaceHash> functions_;
};

}  // namespace

void export_pprof(const Folder& folder, std::ostream& out) {
    Profile profile(*folder.names, out);
    for (const Run& run : folder.runs) profile.add(run);
    profile.finish();
}

}  // namespace memview
