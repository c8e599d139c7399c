#include "tools/memview/report_kinds.h"

namespace memview {
namespace {

std::vector<ColumnSpec> site_columns() {
    return {{"address", "Address", Unit::address},
            {"current", "Current bytes", Unit::bytes},
            {"max", "Max bytes", Unit::bytes},
            {"peak", "Peak bytes", Unit::bytes},
            {"cumulative", "Cumulative bytes", Unit::bytes},
            {"requested", "Cumulative requested bytes", Unit::bytes},
            {"mismatched", "Cumulative mismatched bytes", Unit::bytes},
            {"current_blocks", "Current blocks", Unit::blocks},
            {"max_blocks", "Max blocks", Unit::blocks},
            {"peak_blocks", "Peak blocks", Unit::blocks},
            {"cumulative_blocks", "Cumulative blocks", Unit::blocks},
            {"module", "Module", Unit::text},
            {"file", "File", Unit::text},
            {"line", "Line", Unit::line},
            {"function", "Function", Unit::text}};
}

std::vector<ColumnSpec> module_columns() {
    return {{"name", "Subsystem", Unit::text},
            {"current", "Current bytes", Unit::bytes},
            {"max", "Max bytes", Unit::bytes},
            {"peak", "Peak bytes", Unit::bytes},
            {"cumulative", "Cumulative bytes", Unit::bytes},
            {"requested", "Cumulative requested bytes", Unit::bytes},
            {"mismatched", "Cumulative mismatched bytes", Unit::bytes},
            {"current_blocks", "Current blocks", Unit::blocks},
            {"peak_blocks", "Peak blocks", Unit::blocks},
            {"cumulative_blocks", "Cumulative blocks", Unit::blocks}};
}

std::vector<ColumnSpec> bin_columns() {
    return {{"name", "Name", Unit::text},
            {"max", "Max bytes", Unit::bytes},
            {"peak", "Peak bytes", Unit::bytes},
            {"cumulative", "Cumulative bytes", Unit::bytes},
            {"current", "Current bytes", Unit::bytes}};
}

std::vector<ColumnSpec> mib_columns() {
    return {{"name", "Name", Unit::text},
            {"max", "Max MiB", Unit::thousandths},
            {"peak", "Peak MiB", Unit::thousandths},
            {"cumulative", "Cumulative MiB", Unit::thousandths},
            {"current", "Current MiB", Unit::thousandths}};
}

}  // namespace

const std::vector<TableKind>& table_kinds() {
    static const std::vector<TableKind> kinds = {
        {"fileline", "sites", "MEM: TBB Fileline Tracking Memory Snapshot.", true, true, -1, site_columns()},
        {"subsystem", "modules", "MEM: TBB Subsystem Tracking Memory Snapshot.", false, true, 2,
         module_columns()},
        {"pbin_stats", "bins", "Memory Tracking - Profile Bin Stats", false, false, -1, bin_columns()},
        {"pbin_tag_stats", "tags", "Memory Tracking - Profile Tag Stats", false, false, -1, bin_columns()},
        {"pbin_stats_mb", "bins_mb", "Memory Tracking - Profile Bin Stats (MiB)", false, false, -1,
         mib_columns()},
        {"pbin_tag_stats_mb", "tags_mb", "Memory Tracking - Profile Tag Stats (MiB)", false, false, -1,
         mib_columns()}};
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

const std::vector<ColumnSpec>& leak_columns() {
    static const std::vector<ColumnSpec> columns = {{"module", "Module", Unit::text},
                                                    {"current", "Leaked bytes", Unit::bytes},
                                                    {"current_blocks", "Objects", Unit::blocks},
                                                    {"file", "File", Unit::text},
                                                    {"line", "Line", Unit::line},
                                                    {"function", "Function", Unit::text}};
    return columns;
}

const std::vector<ColumnSpec>& fast_leak_columns() {
    static const std::vector<ColumnSpec> columns = {{"name", "Program", Unit::text},
                                                    {"current", "Leaked bytes", Unit::bytes},
                                                    {"peak", "Peak bytes on heap", Unit::bytes}};
    return columns;
}

const std::vector<ColumnSpec>& filtered_columns() {
    static const std::vector<ColumnSpec> columns = {{"address", "PC", Unit::address},
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

bool is_closing_line(std::string_view line) {
    return line.starts_with("Time spent dumping:\t") || line == "Error timing this dump.";
}

}  // namespace memview
