#include <map>
#include <tuple>
#include <unordered_map>

#include "tools/memview/export.h"
#include "tools/memview/gzip.h"
#include "tools/memview/profile.pb.h"

namespace memview {
namespace {

struct SampleType {
    const char* column;
    const char* name;
    const char* unit;
};

constexpr SampleType TYPES[] = {
    {"current_blocks", "inuse_objects", "count"},    {"current", "inuse_space", "bytes"},
    {"cumulative_blocks", "alloc_objects", "count"}, {"cumulative", "alloc_space", "bytes"},
    {"peak_blocks", "peak_objects", "count"},        {"peak", "peak_space", "bytes"}};

class Profile {
  public:
    explicit Profile(const Names& names) : m_names(names) {
        string_number("");
        for (const SampleType& type : TYPES) {
            pprof::ValueType* added = m_profile.add_sample_type();
            added->set_type(string_number(type.name));
            added->set_unit(string_number(type.unit));
        }
        m_profile.mutable_period_type()->set_type(string_number("space"));
        m_profile.mutable_period_type()->set_unit(string_number("bytes"));
        m_profile.set_period(1);  // every allocation is in it
        m_profile.set_default_sample_type(string_number("peak_space"));
    }

    void add(const Run& run) {
        const Table& sites = sites_of(run);
        for (std::size_t row = 0; row < sites.rows; ++row) {
            pprof::Sample sample;
            bool empty = true;
            for (const SampleType& type : TYPES) {
                const std::int64_t value = (*sites.cells(type.column))[row];
                sample.add_value(value);
                empty = empty && value == 0;
            }
            if (empty) continue;
            sample.add_location_id(location_number(sites, row));
            pprof::Label* label = sample.add_label();
            label->set_key(string_number("process"));
            label->set_str(string_number(run.name));
            *m_profile.add_sample() = std::move(sample);
        }
    }

    std::string text() const { return m_profile.SerializeAsString(); }

  private:
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

    std::int64_t string_number(const std::string& text) {
        const auto [found, is_new] = m_strings.try_emplace(text, m_profile.string_table_size());
        if (is_new) m_profile.add_string_table(utf8(text));
        return found->second;
    }

    // The reports do not tell where a module lay, so its range stays open.
    std::uint64_t mapping_number(const std::string& module) {
        const auto [found, is_new] = m_mappings.try_emplace(module, m_mappings.size() + 1);
        if (is_new) {
            pprof::Mapping* mapping = m_profile.add_mapping();
            mapping->set_id(found->second);
            mapping->set_filename(string_number(module));
            mapping->set_has_functions(true);
            mapping->set_has_filenames(true);
            mapping->set_has_line_numbers(true);
        }
        return found->second;
    }

    std::uint64_t function_number(const SiteFrames& site) {
        const auto [found, is_new] =
            m_functions.try_emplace({site.function, site.file}, m_functions.size() + 1);
        if (is_new) {
            pprof::Function* function = m_profile.add_function();
            function->set_id(found->second);
            function->set_name(string_number(site.function));
            function->set_system_name(string_number(site.function));
            function->set_filename(string_number(site.file));
        }
        return found->second;
    }

    std::uint64_t location_number(const Table& sites, std::size_t row) {
        const SiteFrames site = frames_of(sites, row, m_names);
        pprof::Location* location = m_profile.add_location();
        location->set_id(static_cast<std::uint64_t>(m_profile.location_size()));
        location->set_mapping_id(mapping_number(site.module));
        location->set_address(static_cast<std::uint64_t>((*sites.cells("address"))[row]));
        pprof::Line* line = location->add_line();
        line->set_function_id(function_number(site));
        line->set_line(site.line);
        return location->id();
    }

    const Names& m_names;
    pprof::Profile m_profile;
    std::unordered_map<std::string, std::int64_t> m_strings;
    std::unordered_map<std::string, std::uint64_t> m_mappings;
    std::map<std::pair<std::string, std::string>, std::uint64_t> m_functions;
};

}  // namespace

void export_pprof(const Folder& folder, std::ostream& out) {
    Profile profile(folder.names);
    for (const Run& run : folder.runs) profile.add(run);
    out << gzip(profile.text());
}

}  // namespace memview
