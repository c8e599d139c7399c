#pragma once

// The report files as the reader knows them, beside what mem/columns says of them.

#include <string_view>

#include "mem/columns/report_columns.h"
#include "tools/reports/model.h"

namespace memview {

inline constexpr std::string_view file_prefix = "mem_tbb_";
inline constexpr std::string_view file_suffix = ".log";
inline constexpr const char* fast_leak_file = "mem_tbb_fast_leak_warning.log";
inline constexpr const char* shared_leak_file = "veldrin_za_leak_warning.txt";

inline constexpr const char* module_timeline = mem_report::module_timeline.kind;
inline constexpr const char* module_timeline_detailed = mem_report::module_timeline_detailed.kind;
inline constexpr const char* blocks_timeline = mem_report::blocks_timeline.kind;
inline constexpr const char* blocks_timeline_detailed = mem_report::blocks_timeline_detailed.kind;
inline constexpr const char* tag_timeline = mem_report::tag_timeline.kind;
inline constexpr const char* auxiliary_timeline = mem_report::process.kind;
inline constexpr const char* clock_kind = mem_report::clock.kind;
inline constexpr const char* resident_kind = mem_report::resident.kind;
inline constexpr const char* paths_kind = mem_report::call_paths.kind;

inline constexpr const char* fast_leak_head = "For more detail, use INI mem_check_leaks=on";
inline constexpr const char* rest_series = "Misc";

// A report that is one table.
struct TableKind {
    const MEM_REPORT& report;  // whose title may go on in " [at index N]" when `indexed`
    const char* key;           // of the Table
    bool indexed = false;
    bool closing_line = false;  // the report ends with the time that it took
    int optional_column = -1;   // a column that may be absent, or -1
};

// Null for a report of another kind.
const TableKind* table_kind(std::string_view kind);

// Which title a kind bears that is a timeline; null for one that is none.
const char* timeline_title(std::string_view kind);

inline constexpr const char* exact_peak = "exact_peak";  // a column that the reader adds from the call paths
inline constexpr const char* exact_peak_blocks = "exact_peak_blocks";
inline constexpr ColumnSpec exact_columns[] = {{exact_peak, "Exact peak bytes", Unit::bytes},
                                               {exact_peak_blocks, "Exact peak blocks", Unit::blocks}};

// What the reader calls the parts of reports that have sentences instead of columns.
inline constexpr ColumnSpec leak_columns[] = {mem_column::module,
                                              {"current", "Leaked bytes", Unit::bytes},
                                              {"current_blocks", "Objects", Unit::blocks},
                                              mem_column::file,
                                              mem_column::line_number,
                                              mem_column::function};
inline constexpr ColumnSpec fast_leak_columns[] = {{"name", "Program", Unit::text},
                                                   {"current", "Leaked bytes", Unit::bytes},
                                                   {"peak", "Peak bytes on heap", Unit::bytes}};
inline constexpr ColumnSpec filtered_columns[] = {{"address", "PC", Unit::address},
                                                  {"module", "module", Unit::text},
                                                  {"function", "function", Unit::text},
                                                  {"place", "fileline", Unit::text}};

}  // namespace memview
