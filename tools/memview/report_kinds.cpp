#include "tools/memview/report_kinds.h"

namespace memview {
namespace {

using Columns = std::vector<ColumnSpec>;

constexpr ColumnSpec CURRENT = {"current", "Current bytes", Unit::bytes};
constexpr ColumnSpec MAX = {"max", "Max bytes", Unit::bytes};
constexpr ColumnSpec PEAK = {"peak", "Peak bytes", Unit::bytes};
constexpr ColumnSpec CUMULATIVE = {"cumulative", "Cumulative bytes", Unit::bytes};
constexpr ColumnSpec REQUESTED = {"requested", "Cumulative requested bytes", Unit::bytes};
constexpr ColumnSpec MISMATCHED = {"mismatched", "Cumulative mismatched bytes", Unit::bytes};
constexpr ColumnSpec CURRENT_BLOCKS = {"current_blocks", "Current blocks", Unit::blocks};
constexpr ColumnSpec MAX_BLOCKS = {"max_blocks", "Max blocks", Unit::blocks};
constexpr ColumnSpec PEAK_BLOCKS = {"peak_blocks", "Peak blocks", Unit::blocks};
constexpr ColumnSpec CUMULATIVE_BLOCKS = {"cumulative_blocks", "Cumulative blocks", Unit::blocks};
constexpr ColumnSpec MODULE = {"module", "Module", Unit::text};
constexpr ColumnSpec FILE_NAME = {"file", "File", Unit::text};
constexpr ColumnSpec LINE = {"line", "Line", Unit::line};
constexpr ColumnSpec FUNCTION = {"function", "Function", Unit::text};
constexpr ColumnSpec NAME = {"name", "Name", Unit::text};

}  // namespace

const std::vector<TableKind>& table_kinds() {
    static const Columns sites = {{"address", "Address", Unit::address},
                                  CURRENT,
                                  MAX,
                                  PEAK,
                                  CUMULATIVE,
                                  REQUESTED,
                                  MISMATCHED,
                                  CURRENT_BLOCKS,
                                  MAX_BLOCKS,
                                  PEAK_BLOCKS,
                                  CUMULATIVE_BLOCKS,
                                  MODULE,
                                  FILE_NAME,
                                  LINE,
                                  FUNCTION};
    static const Columns modules = {{"name", "Subsystem", Unit::text},
                                    CURRENT,
                                    MAX,
                                    PEAK,
                                    CUMULATIVE,
                                    REQUESTED,
                                    MISMATCHED,
                                    CURRENT_BLOCKS,
                                    PEAK_BLOCKS,
                                    CUMULATIVE_BLOCKS};
    static const Columns bytes = {NAME, MAX, PEAK, CUMULATIVE, CURRENT};
    static const Columns mib = {NAME,
                                {"max", "Max MiB", Unit::thousandths},
                                {"peak", "Peak MiB", Unit::thousandths},
                                {"cumulative", "Cumulative MiB", Unit::thousandths},
                                {"current", "Current MiB", Unit::thousandths}};
    static const std::vector<TableKind> kinds = {
        {"fileline", "sites", "MEM: TBB Fileline Tracking Memory Snapshot.", true, true, -1, sites},
        {"subsystem", "modules", "MEM: TBB Subsystem Tracking Memory Snapshot.", false, true, 2, modules},
        {"pbin_stats", "bins", "Memory Tracking - Profile Bin Stats", false, false, -1, bytes},
        {"pbin_tag_stats", "tags", "Memory Tracking - Profile Tag Stats", false, false, -1, bytes},
        {"pbin_stats_mb", "bins_mb", "Memory Tracking - Profile Bin Stats (MiB)", false, false, -1, mib},
        {"pbin_tag_stats_mb", "tags_mb", "Memory Tracking - Profile Tag Stats (MiB)", false, false, -1, mib}};
    return kinds;
}

const TableKind* table_kind(std::string_view kind) {
    for (const TableKind& one : table_kinds()) {
        if (one.kind == kind) return &one;
    }
    return nullptr;
}

const char* timeline_title(std::string_view kind) {
    if (kind == MODULE_TIMELINE || kind == BLOCKS_TIMELINE) return PLAIN_TIMELINE_TITLE;
    if (kind == AUXILIARY_TIMELINE) return AUXILIARY_TITLE;
    const bool detailed =
        kind == MODULE_TIMELINE_DETAILED || kind == BLOCKS_TIMELINE_DETAILED || kind == TAG_TIMELINE;
    return detailed ? DETAILED_TIMELINE_TITLE : nullptr;
}

const Columns& frame_columns() {
    static const Columns columns = {{"frame", "Frame", Unit::line},
                                    {"level", "Level", Unit::line},
                                    {"address", "Address", Unit::address},
                                    {"filtered", "Filtered", Unit::line},
                                    MODULE,
                                    FILE_NAME,
                                    LINE,
                                    FUNCTION};
    return columns;
}

const Columns& node_columns() {
    static const Columns columns = {{"node", "Node", Unit::line},
                                    {"parent", "Parent", Unit::line},
                                    {"frame", "Frame", Unit::line},
                                    {"site", "Site", Unit::site},
                                    CURRENT,
                                    CURRENT_BLOCKS,
                                    {"current_requested", "Current requested bytes", Unit::bytes},
                                    PEAK,
                                    PEAK_BLOCKS,
                                    CUMULATIVE,
                                    CUMULATIVE_BLOCKS,
                                    REQUESTED,
                                    {"temporary_blocks", "Temporary blocks", Unit::blocks}};
    return columns;
}

const Columns& exact_columns() {
    static const Columns columns = {{EXACT_PEAK, "Exact peak bytes", Unit::bytes},
                                    {EXACT_PEAK_BLOCKS, "Exact peak blocks", Unit::blocks}};
    return columns;
}

const Columns& leak_columns() {
    static const Columns columns = {MODULE,
                                    {"current", "Leaked bytes", Unit::bytes},
                                    {"current_blocks", "Objects", Unit::blocks},
                                    FILE_NAME,
                                    LINE,
                                    FUNCTION};
    return columns;
}

const Columns& fast_leak_columns() {
    static const Columns columns = {{"name", "Program", Unit::text},
                                    {"current", "Leaked bytes", Unit::bytes},
                                    {"peak", "Peak bytes on heap", Unit::bytes}};
    return columns;
}

const Columns& filtered_columns() {
    static const Columns columns = {{"address", "PC", Unit::address},
                                    {"module", "module", Unit::text},
                                    {"function", "function", Unit::text},
                                    {"place", "fileline", Unit::text}};
    return columns;
}

const std::vector<std::string_view>& auxiliary_columns() {
    static const std::vector<std::string_view> columns = {"page_faults",
                                                          "commit_charge",
                                                          "resident",
                                                          "profiler_num_allocs",
                                                          "profiler_num_deallocs",
                                                          "profiler_num_outstanding",
                                                          "profiler_requested_total",
                                                          "profiler_requested_outstanding",
                                                          "profiler_allocated_total",
                                                          "profiler_allocated_outstanding"};
    return columns;
}

}  // namespace memview
