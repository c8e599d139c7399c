// The fileline report, a row for each call site, and the subsystem report, a row for each module.
#include <algorithm>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "ktl_mem/reports.h"
#include "mem/attribution/call_sites.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/base/tracking_word.h"
#include "mem/report/report_gate.h"
#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"
#include "mem/timeline/module_timelines.h"
#include "mem/tracker/peak_search.h"

namespace {

struct CALL_SITE_ROW {
    const MEM_STACK_FRAME* frame;
    MEMORY_TRACKER_BASE counters;

    bool is_other() const { return frame->pc == 0; }
};

// The counters of all records at one moment: events wait while they are copied, and go on while they are
// sorted and written. The texts never change, so rows point at them; `held` keeps a reset from taking them
// away.
std::vector<CALL_SITE_ROW> copy_rows(std::unique_lock<MEM_SPIN_LOCK>& held) MEM_LOCKS_UNCHECKED {
    std::vector<CALL_SITE_ROW> rows;
    const MEM_REPORT_GATE alone;
    held.lock();
    for (auto& [pc, site] : mem_tbb_call_sites->records()) rows.push_back({&site.frame, site.counters()});
    return rows;
}

void write_fileline_row(std::ostream& out, MEM_REPORT_LINE& line, const CALL_SITE_ROW& row) {
    if (row.is_other()) {
        line.text("OTHER");
    } else {
        line.address(row.frame->pc);
    }
    const MEMORY_TRACKER_BASE& counters = row.counters;
    for (const std::int64_t value :
         {counters.current_bytes, counters.max_bytes, counters.peak_bytes, counters.cumulative_bytes,
          counters.cumulative_requested_bytes, counters.cumulative_mismatched_bytes,
          std::int64_t{counters.current_blocks}, std::int64_t{counters.max_blocks},
          std::int64_t{counters.peak_blocks}, counters.cumulative_blocks})
        line.text("\t").number(value);
    line.text("\t")
        .text(row.frame->module)
        .text("\t")
        .text(row.frame->file)
        .text("\t")
        .number(row.frame->line);
    line.text("\t").text(row.frame->function).end_row(out);
}

void write_fileline_rows(std::ostream& out, MEM_REPORT_LINE& line) {
    std::unique_lock<MEM_SPIN_LOCK> held(mem_call_site_lock, std::defer_lock);
    std::vector<CALL_SITE_ROW> rows = copy_rows(held);
    std::sort(rows.begin(), rows.end(), [](const CALL_SITE_ROW& a, const CALL_SITE_ROW& b) {
        return a.counters.peak_bytes > b.counters.peak_bytes;
    });
    for (const CALL_SITE_ROW& row : rows)
        if (row.counters.cumulative_bytes != 0 || row.is_other()) write_fileline_row(out, line, row);
}

using SUBSYSTEMS = std::map<std::string, MEMORY_TRACKER_BASE, std::less<>>;

void add(MEMORY_TRACKER_BASE& sum, const MEMORY_TRACKER_BASE& counters) {
    sum.current_blocks += counters.current_blocks;
    sum.peak_blocks += counters.peak_blocks;
    sum.cumulative_blocks += counters.cumulative_blocks;
    sum.current_bytes += counters.current_bytes;
    sum.peak_bytes += counters.peak_bytes;
    sum.cumulative_bytes += counters.cumulative_bytes;
    sum.cumulative_requested_bytes += counters.cumulative_requested_bytes;
    sum.cumulative_mismatched_bytes += counters.cumulative_mismatched_bytes;
}

SUBSYSTEMS sum_by_module() {
    SUBSYSTEMS sums;
    const MEM_REPORT_GATE alone;
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    for (auto& [pc, site] : mem_tbb_call_sites->records()) {
        const auto found = sums.find(std::string_view(site.frame.module));
        add(found != sums.end() ? found->second : sums[site.frame.module], site.counters());
    }
    return sums;
}

// The highest that each module had at any sample, or at the peak.
void add_maxima(SUBSYSTEMS& sums) {
    mem_tbb_module_timelines->read([&](const MEM_MODULE_TIMELINES::SERIES_MAP& series, std::uint64_t) {
        for (auto& [module, sum] : sums) {
            sum.max_bytes = sum.peak_bytes;
            const auto found = series.find(module);
            if (found != series.end() && !found->second.bytes.runs.empty())
                sum.max_bytes = std::max(sum.max_bytes, found->second.bytes.highest());
        }
    });
}

bool is_maximum(const MEM_COLUMN& column) {
    return column.key == std::string_view(mem_column::max.key);
}

void write_subsystem_row(std::ostream& out, MEM_REPORT_LINE& line, const std::string& module,
                         const MEMORY_TRACKER_BASE& sum, bool with_maxima) {
    line.text(module.empty() ? "OTHER" : module).text("\t").number(sum.current_bytes);
    if (with_maxima) line.text("\t").number(sum.max_bytes);
    for (const std::int64_t value : {sum.peak_bytes, sum.cumulative_bytes, sum.cumulative_requested_bytes,
                                     sum.cumulative_mismatched_bytes, std::int64_t{sum.current_blocks},
                                     std::int64_t{sum.peak_blocks}, sum.cumulative_blocks})
        line.text("\t").number(value);
    line.end_row(out);
}

void write_subsystem_rows(std::ostream& out, MEM_REPORT_LINE& line, const SUBSYSTEMS& sums,
                          bool with_maxima) {
    std::vector<std::pair<std::string, MEMORY_TRACKER_BASE>> rows(sums.begin(), sums.end());
    std::sort(rows.begin(), rows.end(),
              [](const auto& a, const auto& b) { return a.second.peak_bytes > b.second.peak_bytes; });
    for (const auto& [module, sum] : rows)
        if (sum.cumulative_bytes != 0 || module == "OTHER")
            write_subsystem_row(out, line, module, sum, with_maxima);
}

}  // namespace

bool mem_dump_tbb_fileline_tracking(std::ostream& out) {
    if (!mem_tbb_tracker_is_inited()) return true;
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    const MEM_REPORT_CLOCK clock;
    MEM_REPORT_LINE line;
    line.text(mem_report::call_sites.title).text(" [at index ");
    line.number(std::uint64_t{mem_tbb_peak_timeline_index}).text("]").end_row(out);
    line.end_row(out);
    line.titles(mem_report::call_sites.columns).end_row(out);
    write_fileline_rows(out, line);
    line.text(clock.trailer()).end_row(out);
    return true;
}

bool mem_dump_tbb_subsystem_tracking(std::ostream& out) {
    if (!mem_tbb_tracker_is_inited()) return true;
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    const MEM_REPORT_CLOCK clock;
    const bool with_maxima = mem_report_is_due(MEM_TRACKING_PER_LIBRARY);
    SUBSYSTEMS sums = sum_by_module();
    if (with_maxima) add_maxima(sums);
    MEM_REPORT_LINE line;
    line.text(mem_report::modules.title).end_row(out);
    line.end_row(out);
    std::vector<MEM_COLUMN> columns(mem_report::modules.columns.begin(), mem_report::modules.columns.end());
    if (!with_maxima) std::erase_if(columns, [](const MEM_COLUMN& column) { return is_maximum(column); });
    line.titles(columns).end_row(out);
    write_subsystem_rows(out, line, sums, with_maxima);
    line.text(clock.trailer()).end_row(out);
    return true;
}
