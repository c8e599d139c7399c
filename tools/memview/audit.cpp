#include "tools/memview/audit.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <numeric>

#include "tools/memview/report_kinds.h"
#include "tools/memview/series_reader.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

using Sums = std::map<std::string, std::int64_t>;

constexpr const char* OTHER = "OTHER";

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

class Auditor {
  public:
    Auditor(const Run& run, const Names& names) : m_run(run), m_names(names) {}

    Audit run_all() {
        const Table* sites = m_run.table("sites");
        const Table* modules = m_run.table("modules");
        const Table* bins = m_run.table("bins");
        const Table* tags = m_run.table("tags");
        if (sites != nullptr) audit_bounds(*sites);
        if (sites != nullptr && modules != nullptr) audit_modules(*sites, *modules);
        if (sites != nullptr && m_run.table("leaks") != nullptr) audit_leaks(*sites, *m_run.table("leaks"));
        if (bins != nullptr && tags != nullptr) audit_totals("bins", *bins, "tags", *tags);
        if (sites != nullptr && tags != nullptr) audit_totals("call sites", *sites, "tags", *tags);
        audit_mib("bins", bins, m_run.table("bins_mb"));
        audit_mib("tags", tags, m_run.table("tags_mb"));
        audit_last_sample(MODULE_TIMELINE_DETAILED, modules);
        audit_last_sample(TAG_TIMELINE, tags);
        audit_forms(MODULE_TIMELINE, MODULE_TIMELINE_DETAILED);
        audit_forms(BLOCKS_TIMELINE, BLOCKS_TIMELINE_DETAILED);
        return std::move(m_audit);
    }

  private:
    void compare(const std::string& what, const std::string& left, std::int64_t a, const std::string& right,
                 std::int64_t b) {
        ++m_audit.compared;
        if (a == b) return;
        m_audit.disagreements.push_back(what + ": " + left + " " + std::to_string(a) + ", " + right + " " +
                                        std::to_string(b) + " (" + std::to_string(a - b) + " apart)");
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

    std::string text(const Table& table, const char* column, std::size_t row) const {
        return m_names.text((*table.cells(column))[row]);
    }

    std::string place(const Table& table, std::size_t row) const {
        return text(table, "module", row) + " " + text(table, "file", row) + ":" +
               std::to_string((*table.cells("line"))[row]) + " " + text(table, "function", row);
    }

    Sums sums_by(const Table& table, const char* name_column, const std::string& column) const {
        Sums sums;
        const std::vector<std::int64_t>& cells = *table.cells(column);
        for (std::size_t row = 0; row < table.rows; ++row) {
            const std::string name = text(table, name_column, row);
            sums[name.empty() ? OTHER : name] += cells[row];
        }
        return sums;
    }

    // A row's own highest value bounds what it holds now and what it held at the peak.
    void audit_bounds(const Table& sites) {
        for (const char* suffix : {"", "_blocks"}) {
            const auto column = [&](const char* name) -> const std::vector<std::int64_t>& {
                return *sites.cells(std::string(name) + suffix);
            };
            for (std::size_t row = 0; row < sites.rows; ++row) {
                ++m_audit.compared;
                const std::int64_t highest = column("max")[row];
                const bool inside = column("current")[row] <= highest && column("peak")[row] <= highest &&
                                    highest <= column("cumulative")[row];
                if (inside) continue;
                m_audit.disagreements.push_back(
                    "call site " + harmless(place(sites, row)) + ": current" + suffix + " " +
                    std::to_string(column("current")[row]) + ", peak " + std::to_string(column("peak")[row]) +
                    ", max " + std::to_string(highest) + ", cumulative " +
                    std::to_string(column("cumulative")[row]) + " are out of order");
            }
        }
    }

    void audit_modules(const Table& sites, const Table& modules) {
        for (const char* column : {"current", "peak", "cumulative", "requested", "mismatched",
                                   "current_blocks", "peak_blocks", "cumulative_blocks"}) {
            compare_all(std::string(column) + " of module", "call sites", sums_by(sites, "module", column),
                        "module row", sums_by(modules, "name", column));
        }
    }

    // The leak report has the call sites that hold bytes, without OTHER.
    void audit_leaks(const Table& sites, const Table& leaks) {
        Sums held;
        Sums leaked;
        const std::vector<std::int64_t>& current = *sites.cells("current");
        for (std::size_t row = 0; row < sites.rows; ++row) {
            const bool other = (*sites.cells("address"))[row] == 0;
            if (!other && current[row] > 0) held[place(sites, row)] += current[row];
        }
        for (std::size_t row = 0; row < leaks.rows; ++row)
            leaked[place(leaks, row)] += (*leaks.cells("current"))[row];
        compare_all("bytes held at the end by", "call site", held, "leak report", leaked);
    }

    void audit_totals(const char* left_name, const Table& left, const char* right_name, const Table& right) {
        for (const char* column : {"current", "peak", "cumulative"}) {
            compare(std::string(column) + " of all", left_name, left.sum(column), right_name,
                    right.sum(column));
        }
    }

    void audit_mib(const char* what, const Table* bytes, const Table* mib) {
        if (bytes == nullptr || mib == nullptr) return;
        for (const char* column : {"max", "peak", "cumulative", "current"}) {
            compare(std::string("rows of ") + what, "bytes", static_cast<std::int64_t>(bytes->rows), "MiB",
                    static_cast<std::int64_t>(mib->rows));
            for (std::size_t row = 0; row < std::min(bytes->rows, mib->rows); ++row) {
                ++m_audit.compared;
                const double exact = static_cast<double>((*bytes->cells(column))[row]) * 1000 / 1048576;
                const double told = static_cast<double>((*mib->cells(column))[row]);
                const bool same_name = text(*bytes, "name", row) == text(*mib, "name", row);
                if (same_name && exact - told < 0.51 && told - exact < 0.51) continue;
                m_audit.disagreements.push_back(std::string(column) + " of " + what + " row " +
                                                std::to_string(row + 1) + " (" +
                                                harmless(text(*bytes, "name", row)) + "): bytes " +
                                                std::to_string((*bytes->cells(column))[row]) + ", MiB " +
                                                fixed_thousandths((*mib->cells(column))[row]));
            }
        }
    }

    // The last sample is taken when the reports are written, so it must tell what the table tells.
    void audit_last_sample(const char* kind, const Table* table) {
        const Timeline* timeline = m_run.timeline(kind);
        if (timeline == nullptr || table == nullptr || timeline->samples == 0) return;
        Sums last;
        for (const Series& series : timeline->series) last[lower(series.name)] += series.last;
        Sums current;
        for (const auto& [name, value] : sums_by(*table, "name", "current")) current[lower(name)] += value;
        compare_all(std::string("bytes at the end of ") + table->key + " row", "last sample", last, "table",
                    current);
    }

    std::vector<std::int64_t> row_sums(const Timeline& timeline, const char* kind) const {
        std::vector<std::int64_t> sums;
        sums.reserve(timeline.samples);
        SeriesVisitor visitor;
        visitor.header = [](const std::vector<std::string>&) {};
        visitor.row = [&sums](std::string_view, std::span<const std::int64_t> values) {
            sums.push_back(std::accumulate(values.begin(), values.end(), std::int64_t{0}));
        };
        Problems told(true);
        scan_series(timeline.file, kind, told, visitor);
        return sums;
    }

    void audit_forms(const char* plain_kind, const char* detailed_kind) {
        const Timeline* plain = m_run.timeline(plain_kind);
        const Timeline* detailed = m_run.timeline(detailed_kind);
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

    const Run& m_run;
    const Names& m_names;
    Audit m_audit;
};

}  // namespace

Audit audit(const Run& run, const Names& names) {
    return Auditor(run, names).run_all();
}

}  // namespace memview
