#include "mem/report/bin_stats_report.h"

#include "ktl_mem/reports.h"
#include "mem/base/tracker_phase.h"
#include "mem/bins/profile_bins.h"
#include "mem/report/report_line.h"

void dump_stats(const MEM_PROFILE_BIN_TABLE& table, std::ostream& out, const MEM_REPORT& report,
                MEM_STATS_UNIT unit, const MEM_PROFILE_BIN_STACK& names) {
    const bool in_bytes = unit == MEM_STATS_UNIT::BYTES;
    MEM_REPORT_LINE line;
    line.text(report.title).text("\n").end_line(out);
    line.titles(report.columns).end_line(out);
    const std::uint32_t rows = table.size();
    for (std::uint32_t id = 0; id < rows; ++id) {
        MEM_PROFILE_BIN& row = table.row(id);
        const MEMORY_TRACKER_BASE counters = row.tally.read();
        line.text(names.name_of(id));
        for (const std::int64_t bytes : {counters.max_bytes, std::int64_t{row.peak},
                                         counters.cumulative_bytes, counters.current_bytes}) {
            line.text("\t");
            in_bytes ? line.number(bytes) : line.mebibytes(bytes);
        }
        line.end_line(out);
    }
}

void mem_dump_tag_stats(std::ostream& out, MEM_STATS_UNIT unit) {
    const bool in_bytes = unit == MEM_STATS_UNIT::BYTES;
    dump_stats(*mem_tbb_tag_table, out, in_bytes ? mem_report::tags : mem_report::tags_in_mebibytes, unit,
               mem_get_profile_bins().tags);
}

void mem_dump_bin_stats(std::ostream& out, MEM_STATS_UNIT unit) {
    const bool in_bytes = unit == MEM_STATS_UNIT::BYTES;
    dump_stats(*mem_tbb_bin_table, out, in_bytes ? mem_report::bins : mem_report::bins_in_mebibytes, unit,
               mem_get_profile_bins().bins);
}

bool mem_dump_tbb_profile_bin_stats_tracking(std::ostream& out) {
    if (!mem_tbb_tracker_has_ended()) mem_dump_bin_stats(out, MEM_STATS_UNIT::BYTES);
    return true;
}

bool mem_dump_tbb_profile_bin_tag_stats_tracking(std::ostream& out) {
    if (!mem_tbb_tracker_has_ended()) mem_dump_tag_stats(out, MEM_STATS_UNIT::BYTES);
    return true;
}
