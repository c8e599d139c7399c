#include "tools/memview/audit.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <numeric>
#include <unordered_map>

#include "tools/memview/places.h"
#include "tools/memview/units.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/series_reader.h"

namespace memview {
namespace {

using Sums = std::map<std::string, std::int64_t>;

constexpr const char* other_record = "OTHER";

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string disagreement(const std::string& what, const std::string& left, std::int64_t a,
                         const std::string& right, std::int64_t b) {
    return what + ": " + left + " " + std::to_string(a) + ", " + right + " " + std::to_string(b) + " (" +
           std::to_string(a - b) + " apart)";
}

class Auditor {
  public:
    Auditor(const Run& run, const Names& names) : run_(run), names_(names) {}

    Audit run_all() {
        const Table* sites = run_.table("sites");
        const Table* modules = run_.table("modules");
        const Table* bins = run_.table("bins");
        const Table* tags = run_.table("tags");
        if (sites != nullptr) audit_bounds(*sites);
        if (sites != nullptr && modules != nullptr) audit_modules(*sites, *modules);
        if (sites != nullptr && run_.table("leaks") != nullptr) audit_leaks(*sites, *run_.table("leaks"));
        if (bins != nullptr && tags != nullptr) audit_bins(*bins, *tags);
        if (sites != nullptr && tags != nullptr) audit_totals("call sites", *sites, "tags", *tags);
        audit_mib("bins", bins, run_.table("bins_mb"));
        audit_mib("tags", tags, run_.table("tags_mb"));
        audit_last_sample(module_timeline_detailed, modules);
        audit_last_sample(tag_timeline, tags);
        audit_forms(module_timeline, module_timeline_detailed);
        audit_forms(blocks_timeline, blocks_timeline_detailed);
        if (run_.paths) audit_paths(*run_.paths, sites);
        if (run_.resident) audit_resident(*run_.resident);
        return std::move(audit_);
    }

  private:
    void compare(const std::string& what, const std::string& left, std::int64_t a, const std::string& right,
                 std::int64_t b) {
        ++audit_.compared;
        if (a != b) audit_.disagreements.push_back(disagreement(what, left, a, right, b));
    }

    // Every key of either side; a missing one counts as 0, which is what the reports leave out.
    void compare_all(const std::string& what, const std::string& left, const Sums& a,
                     const std::string& right, const Sums& b) {
        Sums keys = a;
        keys.insert(b.begin(), b.end());
        const auto value = [](const Sums& sums, const std::string& key) {
            const auto found = sums.find(key);
            return found == sums.end() ? 0 : found->second;
        };
        for (const auto& entry : keys) {
            compare(what + " " + harmless(entry.first), left, value(a, entry.first), right,
                    value(b, entry.first));
        }
    }

    // Summed up by number first, since texts are few and rows many.
    Sums sums_by(const Table& table, const char* name_column, const char* column) const {
        const Cells& names = *table.cells(name_column);
        const Cells& cells = *table.cells(column);
        std::vector<std::int64_t> by_number(names_.size());
        std::vector<bool> is_used(names_.size());
        for (std::size_t row = 0; row < table.rows; ++row) {
            const auto name = static_cast<std::size_t>(names[row]);
            by_number[name] += cells[row];
            is_used[name] = true;
        }
        Sums sums;
        for (std::size_t name = 0; name < by_number.size(); ++name) {
            if (!is_used[name]) continue;
            const std::string text(names_.text(static_cast<std::int64_t>(name)));
            sums[text.empty() ? other_record : text] += by_number[name];
        }
        return sums;
    }

    // A row's own highest value bounds what it holds now and what it held at the peak.
    void audit_bounds(const Table& sites) {
        const PlaceReader places(sites);
        for (const std::string suffix : {"", "_blocks"}) {
            const Cells& current = *sites.cells("current" + suffix);
            const Cells& peak = *sites.cells("peak" + suffix);
            const Cells& max = *sites.cells("max" + suffix);
            const Cells& cumulative = *sites.cells("cumulative" + suffix);
            audit_.compared += sites.rows;
            for (std::size_t row = 0; row < sites.rows; ++row) {
                const std::int64_t highest = max[row];
                if (current[row] <= highest && peak[row] <= highest && highest <= cumulative[row]) continue;
                audit_.disagreements.push_back("call site " + harmless(to_text(places[row], names_)) +
                                               ": current" + suffix + " " + std::to_string(current[row]) +
                                               ", peak " + std::to_string(peak[row]) + ", max " +
                                               std::to_string(highest) + ", cumulative " +
                                               std::to_string(cumulative[row]) + " are out of order");
            }
        }
    }

    // The report of modules has no row for what only came off OTHER and never went to it.
    bool has_no_other(const Table& sites, const Table& modules) const {
        const Sums cumulative = sums_by(sites, "module", "cumulative");
        const auto other = cumulative.find(other_record);
        return other != cumulative.end() && other->second == 0 &&
               !sums_by(modules, "name", "cumulative").contains(other_record);
    }

    void audit_modules(const Table& sites, const Table& modules) {
        no_other_ = has_no_other(sites, modules);
        for (const char* column : {"current", "peak", "cumulative", "requested", "mismatched",
                                   "current_blocks", "peak_blocks", "cumulative_blocks"}) {
            Sums of_sites = sums_by(sites, "module", column);
            if (no_other_) of_sites.erase(other_record);
            compare_all(std::string(column) + " of module", "call sites", of_sites, "module row",
                        sums_by(modules, "name", column));
        }
    }

    // The leak report has the call sites that hold bytes, without OTHER.
    void audit_leaks(const Table& sites, const Table& leaks) {
        const Cells& address = *sites.cells("address");
        const Cells& held = *sites.cells("current");
        const PlaceReader places(sites);
        PlaceSums sums;
        add_sums(leaks, "current", Side::after, sums);
        for (std::size_t row = 0; row < sites.rows; ++row) {
            if (address[row] != 0 && held[row] > 0) sums[places[row]].before += held[row];
        }
        audit_.compared += sums.size();
        std::map<Place, Pair> apart;
        for (const auto& [place, pair] : sums) {
            if (pair.change() != 0) apart[place] = pair;
        }
        for (const auto& [place, pair] : apart) {
            audit_.disagreements.push_back(
                disagreement("bytes held at the end by " + harmless(to_text(place, names_)), "call site",
                             pair.before, "leak report", pair.after));
        }
    }

    // A reset begins the tags anew, with their timeline, and leaves the bins and the clock as they are.
    bool tags_were_reset() const {
        const Timeline* timeline = run_.timeline(tag_timeline);
        return timeline != nullptr && run_.clock && timeline->samples < run_.clock->milliseconds.size();
    }

    void audit_bins(const Table& bins, const Table& tags) {
        if (!tags_were_reset()) {
            audit_totals("bins", bins, "tags", tags);
            return;
        }
        audit_.notes.push_back(
            "bins count from before a reset that began the tags anew: not compared with each other");
    }

    void audit_totals(const char* left_name, const Table& left, const char* right_name, const Table& right) {
        for (const char* column : {"current", "peak", "cumulative"}) {
            compare(std::string(column) + " of all", left_name, left.sum(column), right_name,
                    right.sum(column));
        }
    }

    void audit_mib(const char* what, const Table* bytes, const Table* mib) {
        if (bytes == nullptr || mib == nullptr) return;
        compare(std::string("rows of ") + what, "bytes", static_cast<std::int64_t>(bytes->rows), "MiB",
                static_cast<std::int64_t>(mib->rows));
        const Cells& names = *bytes->cells("name");
        for (const char* column : {"max", "peak", "cumulative", "current"}) {
            const Cells& exact = *bytes->cells(column);
            const Cells& rounded = *mib->cells(column);
            for (std::size_t row = 0; row < std::min(bytes->rows, mib->rows); ++row) {
                ++audit_.compared;
                const bool same_name = names[row] == (*mib->cells("name"))[row];
                if (same_name && is_rounded(exact[row], rounded[row])) continue;
                audit_.disagreements.push_back(
                    std::string(column) + " of " + what + " row " + std::to_string(row + 1) + " (" +
                    harmless(names_.text(names[row])) + "): bytes " + std::to_string(exact[row]) + ", MiB " +
                    fixed_thousandths(rounded[row]));
            }
        }
    }

    static bool is_rounded(std::int64_t bytes, std::int64_t thousandths) {
        const double exact = static_cast<double>(bytes) * 1000 / 1048576;
        return std::fabs(exact - static_cast<double>(thousandths)) < 0.51;
    }

    // The last sample is taken when the reports are written, so it must agree with the table.
    void audit_last_sample(const char* kind, const Table* table) {
        const Timeline* timeline = run_.timeline(kind);
        if (timeline == nullptr || table == nullptr || timeline->samples == 0) return;
        Sums last;
        for (const Series& series : timeline->series) last[lower(series.name)] += series.last;
        if (no_other_ && table->key == "modules") last.erase(lower(other_record));
        Sums current;
        for (const auto& [name, value] : sums_by(*table, "name", "current")) current[lower(name)] += value;
        compare_all(std::string("bytes at the end of ") + table->key + " row", "last sample", last, "table",
                    current);
    }

    // Parts that are known add up to the resident size.
    void audit_resident(const Resident& resident) {
        for (const ResidentPoint& point : resident.points) {
            if (!point.is_full) continue;
            const std::int64_t sum = std::accumulate(point.parts.begin() + BLOCKS,
                                                     point.parts.begin() + GIVEN_BACK, std::int64_t{0});
            compare("resident memory at event " + std::to_string(point.event), "sum of the parts", sum,
                    "whole", point.parts[RESIDENT]);
        }
    }

    std::vector<std::int64_t> row_sums(const Timeline& timeline, const char* kind) const {
        std::vector<std::int64_t> sums;
        sums.reserve(timeline.samples);
        SeriesVisitor visitor;
        visitor.header = [](const std::vector<std::string>&) {};
        visitor.row = [&sums](std::string_view, std::span<const std::int64_t> values) {
            sums.push_back(std::accumulate(values.begin(), values.end(), std::int64_t{0}));
        };
        Problems left_out(true);
        scan_series(timeline.file, kind, left_out, visitor);
        return sums;
    }

    void audit_forms(const char* plain_kind, const char* detailed_kind) {
        const Timeline* plain = run_.timeline(plain_kind);
        const Timeline* detailed = run_.timeline(detailed_kind);
        if (plain == nullptr || detailed == nullptr) return;
        const std::string what = std::string(plain_kind) + ", samples";
        compare(what, "plain form", static_cast<std::int64_t>(plain->samples), "detailed form",
                static_cast<std::int64_t>(detailed->samples));
        const std::vector<std::int64_t> left = row_sums(*plain, plain_kind);
        const std::vector<std::int64_t> right = row_sums(*detailed, detailed_kind);
        for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
            compare(std::string(plain_kind) + ", sum of sample " + std::to_string(i), "plain form", left[i],
                    "detailed form", right[i]);
        }
    }

    // Paths and call sites count the same blocks.
    void audit_paths(const Paths& paths, const Table* sites) {
        for (const Column& column : paths.nodes.columns) {
            const auto in_head = paths.totals.find(column.spec.title);
            if (in_head == paths.totals.end()) continue;
            compare(std::string(column.spec.title) + " of the call paths", "head", in_head->second, "nodes",
                    column.cells.sum());
        }
        if (sites == nullptr) return;
        for (const char* column :
             {"current", "current_blocks", "cumulative", "cumulative_blocks", "requested"}) {
            const std::map<std::int64_t, std::int64_t> of_paths =
                sums_by_address(paths.nodes, "site", column);
            std::map<std::int64_t, std::int64_t> of_sites = sums_by_address(*sites, "address", column);
            for (const auto& [address, sum] : of_paths) of_sites.try_emplace(address, 0);
            for (const auto& [address, sum] : of_sites) {
                const auto found = of_paths.find(address);
                compare(std::string(column) + " of call site " + hex_address(address), "call paths",
                        found == of_paths.end() ? 0 : found->second, "call site", sum);
            }
        }
    }

    static std::map<std::int64_t, std::int64_t> sums_by_address(const Table& table,
                                                                const char* address_column,
                                                                const char* column) {
        const Cells& address = *table.cells(address_column);
        const Cells& cells = *table.cells(column);
        std::unordered_map<std::int64_t, std::int64_t> sums;
        for (std::size_t row = 0; row < table.rows; ++row) sums[address[row]] += cells[row];
        return {sums.begin(), sums.end()};
    }

    const Run& run_;
    const Names& names_;
    bool no_other_ = false;  // the modules' table leaves OTHER out
    Audit audit_;
};

}  // namespace

Audit audit(const Run& run, const Names& names) {
    return Auditor(run, names).run_all();
}

}  // namespace memview
