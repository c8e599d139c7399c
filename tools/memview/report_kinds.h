#pragma once

// The report files: their names, titles and columns.

#include <string>
#include <string_view>
#include <vector>

#include "tools/memview/model.h"

namespace memview {

inline constexpr std::string_view FILE_PREFIX = "mem_tbb_";
inline constexpr std::string_view FILE_SUFFIX = ".log";
inline constexpr const char* FAST_LEAK_FILE = "mem_tbb_fast_leak_warning.log";
inline constexpr const char* SHARED_LEAK_FILE = "veldrin_za_leak_warning.txt";

inline constexpr const char* MODULE_TIMELINE = "timeline";
inline constexpr const char* MODULE_TIMELINE_DETAILED = "timeline_detailed";
inline constexpr const char* BLOCKS_TIMELINE = "cumulative_blocks_timeline";
inline constexpr const char* BLOCKS_TIMELINE_DETAILED = "cumulative_blocks_timeline_detailed";
inline constexpr const char* TAG_TIMELINE = "pbin_tag_timeline_detailed";
inline constexpr const char* AUXILIARY_TIMELINE = "auxiliary_timeline";

inline constexpr const char* PLAIN_TIMELINE_TITLE = "MEM: TBB Module Tracking Memory Timeline.";
inline constexpr const char* DETAILED_TIMELINE_TITLE = "MEM: TBB Module Tracking Detailed Memory Timeline.";
inline constexpr const char* AUXILIARY_TITLE = "MEM: TBB Auxiliary Timeline";
inline constexpr const char* LEAK_TITLE = "MEM: TBB Leak Checking Summary.";
inline constexpr const char* FAST_LEAK_HEAD = "For more detail, use INI mem_check_leaks=on";
inline constexpr const char* CLOCK_KIND = "clock";
inline constexpr const char* CLOCK_TITLE = "MEM: Clock.";
inline constexpr std::string_view CLOCK_COLUMNS = "Sample\tMilliseconds\tEvent";
inline constexpr const char* RESIDENT_KIND = "resident";
inline constexpr const char* RESIDENT_TITLE = "MEM: Resident Memory.";
inline constexpr std::string_view RESIDENT_COLUMNS =
    "Milliseconds\tEvent\tPoint\tResident\tBlocks\tRounding\tUnknown blocks\tTracker blocks\tKept by "
    "threads\t"
    "Kept in between\tKept free\tAllocator tables\tNever touched\tTracker mappings\tStacks\tCode\tModule "
    "data\t"
    "Files\tShared memory\tAnonymous\tUnexplained\tGiven back";
inline constexpr const char* REST_SERIES = "Misc";

// A report that is one table.
struct TableKind {
    const char* kind;     // middle of the file name
    const char* key;      // of the Table
    const char* title;    // the first line, or how it begins when `indexed`
    bool indexed;         // the title ends in " [at index N]"
    bool closing_line;    // the report ends with the time that it took
    int optional_column;  // a column that may be absent, or -1
    std::vector<ColumnSpec> columns;
};

const std::vector<TableKind>& table_kinds();
const TableKind* table_kind(std::string_view kind);

// Whether a kind is a timeline, and which title it must bear.
const char* timeline_title(std::string_view kind);

inline constexpr const char* PATHS_KIND = "call_paths";
inline constexpr const char* PATHS_TITLE = "MEM: Call Paths.";
inline constexpr const char* EXACT_PEAK = "exact_peak";  // a column that the reader adds from the call paths
inline constexpr const char* EXACT_PEAK_BLOCKS = "exact_peak_blocks";
const std::vector<ColumnSpec>& frame_columns();
const std::vector<ColumnSpec>& node_columns();
const std::vector<ColumnSpec>& exact_columns();

const std::vector<ColumnSpec>& leak_columns();
const std::vector<ColumnSpec>& fast_leak_columns();
const std::vector<ColumnSpec>& filtered_columns();
// The columns of the auxiliary timeline, in the order of the file.
const std::vector<std::string_view>& auxiliary_columns();

}  // namespace memview
