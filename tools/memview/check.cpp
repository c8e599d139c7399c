#include "tools/memview/check.h"

#include <algorithm>

#include "tools/memview/audit.h"
#include "tools/memview/diff.h"
#include "tools/memview/places.h"
#include "tools/memview/summary.h"
#include "tools/memview/suppressions.h"
#include "tools/memview/units.h"
#include "tools/reports/folder.h"

namespace memview {
namespace {

constexpr std::string_view other_record = "OTHER";

class Check {
  public:
    Check(const Folder& folder, const Options& options, std::ostream& out)
        : folder_(folder), options_(options), out_(out) {}

    bool all() {
        for (const Run& run : folder_.runs) {
            if (options_.max_peak) check_peak(run);
            if (options_.max_leaked) check_leaked(run);
            check_audit(run);
        }
        if (options_.max_site_growth) check_growth();
        return good_;
    }

  private:
    std::ostream& line(bool good, const std::string& name) {
        good_ = good_ && good;
        return out_ << (good ? "ok      " : "FAILED  ") << harmless(name) << ": ";
    }

    void check_peak(const Run& run) {
        const std::optional<std::int64_t> peak = peak_bytes(run);
        if (!peak)
            throw ReportError({run.folder, 0, "holds no peak for --max-peak: run with call sites or bins"});
        const bool good = static_cast<double>(*peak) <= options_.max_peak->value;
        line(good, run.name) << "peak " << *peak << " bytes (" << human_bytes(*peak)
                             << (!run.paths && grew_to_its_end(run) ? ", held at the end" : "")
                             << "), allowed "
                             << human_bytes(static_cast<std::int64_t>(options_.max_peak->value)) << "\n";
    }

    void check_leaked(const Run& run) {
        if (!leaked_bytes(run)) {
            throw ReportError(
                {run.folder, 0, "holds no leak report for --max-leaked: run with leak checking"});
        }
        Suppressions suppressions =
            options_.allow.empty() ? Suppressions() : Suppressions::read(options_.allow);
        std::vector<std::size_t> counted;
        const Table* leaks = run.table("leaks");
        const std::int64_t of_nobody = leaks != nullptr ? leaked_by_nobody(run) : 0;
        const bool nobody_is_allowed = of_nobody > 0 && suppressions.covers(other_record);
        std::int64_t allowed = nobody_is_allowed ? of_nobody : 0;
        if (leaks != nullptr) allowed += split_leaks(*leaks, suppressions, counted);
        tell_unused(suppressions);
        const std::int64_t leaked = *leaked_bytes(run) + of_nobody - allowed;
        const bool good = static_cast<double>(leaked) <= options_.max_leaked->value;
        line(good, run.name) << "leaked " << leaked << " bytes (" << human_bytes(leaked) << "), allowed "
                             << human_bytes(static_cast<std::int64_t>(options_.max_leaked->value))
                             << ", suppressed " << human_bytes(allowed) << "\n";
        if (good) return;
        for (const std::size_t row : counted) print_leak(*leaks, row);
        if (of_nobody > 0 && !nobody_is_allowed)
            out_ << "        " << of_nobody << " bytes that no call site answers for: " << other_record
                 << "\n";
    }

    // What the leak report leaves out: the bytes held at the end that no call site was found for.
    static std::int64_t leaked_by_nobody(const Run& run) {
        const Table* sites = run.table("sites");
        if (sites == nullptr) {
            throw ReportError(
                {run.folder, 0,
                 "holds no call sites, so that bytes without one are not known to --max-leaked: "
                 "run with call sites, too"});
        }
        const Cells& addresses = *sites->cells("address");
        const Cells& current = *sites->cells("current");
        std::int64_t bytes = 0;
        for (std::size_t row = 0; row < sites->rows; ++row) bytes += addresses[row] == 0 ? current[row] : 0;
        return std::max(bytes, std::int64_t{0});
    }

    // Gives the bytes that the suppressions cover, and the rows that they do not.
    std::int64_t split_leaks(const Table& leaks, Suppressions& suppressions,
                             std::vector<std::size_t>& counted) {
        const Cells& bytes = *leaks.cells("current");
        std::int64_t covered = 0;
        for (std::size_t row = 0; row < leaks.rows; ++row) {
            if (suppressions.covers(leaks, row, *folder_.names)) {
                covered += bytes[row];
            } else {
                counted.push_back(row);
            }
        }
        return covered;
    }

    void tell_unused(const Suppressions& suppressions) {
        for (const std::string& pattern : suppressions.unused()) {
            out_ << "note    " << options_.allow << ": leak:" << harmless(pattern) << " matched nothing\n";
        }
    }

    void print_leak(const Table& leaks, std::size_t row) {
        out_ << "        " << (*leaks.cells("current"))[row] << " bytes, "
             << (*leaks.cells("current_blocks"))[row]
             << " blocks: " << harmless(to_text(PlaceReader(leaks)[row], *folder_.names)) << "\n";
    }

    void check_growth() {
        const auto baseline = read_folders({{options_.baseline}, options_.process, false}, folder_.names);
        const auto diff = make_diff(*baseline, folder_, "peak", *options_.max_site_growth);
        for (const ProcessDiff& process : diff->processes) {
            const auto sites = std::find_if(process.tables.begin(), process.tables.end(),
                                            [](const Table& table) { return table.key == "sites"; });
            if (sites == process.tables.end()) {
                throw ReportError({options_.baseline, 0,
                                   "and this run do not both have the call sites of " +
                                       in_quotes(process.name) + " for --max-site-growth"});
            }
            check_growth(process, *sites);
        }
        for (const std::string& note : diff->notes)
            out_ << "note    " << harmless(note) << ": its call sites were not compared\n";
        if (diff->has_new_process)
            throw ReportError(
                {options_.baseline, 0,
                 "does not hold all processes of this run, so that --max-site-growth cannot be tested"});
    }

    void check_growth(const ProcessDiff& process, const Table& sites) {
        const Cells& change = *sites.cells("change");
        std::size_t grown = 0;
        for (std::size_t row = 0; row < sites.rows; ++row) grown += change[row] > 0 ? 1 : 0;
        line(grown == 0, process.name) << "call sites grown beyond the limit: " << grown << "\n";
        const PlaceReader places(sites);
        for (std::size_t row = 0; row < sites.rows; ++row) {
            if (change[row] <= 0) continue;
            out_ << "        " << human_bytes((*sites.cells("before"))[row]) << " -> "
                 << human_bytes((*sites.cells("after"))[row]) << ": "
                 << harmless(to_text(places[row], *folder_.names)) << "\n";
        }
    }

    void check_audit(const Run& run) {
        const Audit result = audit(run, *folder_.names);
        line(result.disagreements.empty(), run.name)
            << result.compared << " figures compared between the reports, " << result.disagreements.size()
            << " disagree\n";
        for (const std::string& one : result.disagreements) out_ << "        " << harmless(one) << "\n";
        for (const std::string& one : result.notes)
            out_ << "note    " << harmless(run.name) << ": " << one << "\n";
    }

    const Folder& folder_;
    const Options& options_;
    std::ostream& out_;
    bool good_ = true;
};

}  // namespace

bool check(const Folder& folder, const Options& options, std::ostream& out) {
    return Check(folder, options, out).all();
}

}  // namespace memview
