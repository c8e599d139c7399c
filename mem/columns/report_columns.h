// The reports that have columns: the middle of the file's name, its title and its columns. Writers and
// readers take them from here, in this order. Includes nothing, so that tools can include it.
#pragma once

#include <span>

enum class MEM_COLUMN_UNIT {
    text,
    address,  // or "OTHER"
    site,     // the same, or "-"
    line,     // any number from 0 on
    bytes,
    blocks,
    thousandths  // of a MiB, written with a point
};

struct MEM_COLUMN {
    const char* key;    // what tools call it
    const char* title;  // as the report has it
    MEM_COLUMN_UNIT unit;
};

// Key and unit as for MEM_COLUMN are those of the tools; a file is named mem_tbb_KIND.WORD.log.
struct MEM_REPORT {
    const char* kind;
    const char* title;  // the first line, or how it begins
    std::span<const MEM_COLUMN> columns;
};

// Columns that more than one report has.
namespace mem_column {
using enum MEM_COLUMN_UNIT;
inline constexpr MEM_COLUMN current = {"current", "Current bytes", bytes};
inline constexpr MEM_COLUMN max = {"max", "Max bytes", bytes};
inline constexpr MEM_COLUMN peak = {"peak", "Peak bytes", bytes};
inline constexpr MEM_COLUMN cumulative = {"cumulative", "Cumulative bytes", bytes};
inline constexpr MEM_COLUMN requested = {"requested", "Cumulative requested bytes", bytes};
inline constexpr MEM_COLUMN mismatched = {"mismatched", "Cumulative mismatched bytes", bytes};
inline constexpr MEM_COLUMN current_blocks = {"current_blocks", "Current blocks", blocks};
inline constexpr MEM_COLUMN max_blocks = {"max_blocks", "Max blocks", blocks};
inline constexpr MEM_COLUMN peak_blocks = {"peak_blocks", "Peak blocks", blocks};
inline constexpr MEM_COLUMN cumulative_blocks = {"cumulative_blocks", "Cumulative blocks", blocks};
inline constexpr MEM_COLUMN temporary_blocks = {"temporary_blocks", "Temporary blocks", blocks};
inline constexpr MEM_COLUMN module = {"module", "Module", text};
inline constexpr MEM_COLUMN file = {"file", "File", text};
inline constexpr MEM_COLUMN line_number = {"line", "Line", line};
inline constexpr MEM_COLUMN function = {"function", "Function", text};
inline constexpr MEM_COLUMN name = {"name", "Name", text};

inline constexpr MEM_COLUMN of_call_sites[] = {{"address", "Address", address},
                                               current,
                                               max,
                                               peak,
                                               cumulative,
                                               requested,
                                               mismatched,
                                               current_blocks,
                                               max_blocks,
                                               peak_blocks,
                                               cumulative_blocks,
                                               module,
                                               file,
                                               line_number,
                                               function};
inline constexpr MEM_COLUMN of_modules[] = {{"name", "Subsystem", text},
                                            current,
                                            max,
                                            peak,
                                            cumulative,
                                            requested,
                                            mismatched,
                                            current_blocks,
                                            peak_blocks,
                                            cumulative_blocks};
inline constexpr MEM_COLUMN of_bins[] = {name, max, peak, cumulative, current};
inline constexpr MEM_COLUMN of_bins_in_mebibytes[] = {name,
                                                      {"max", "Max MiB", thousandths},
                                                      {"peak", "Peak MiB", thousandths},
                                                      {"cumulative", "Cumulative MiB", thousandths},
                                                      {"current", "Current MiB", thousandths}};
inline constexpr MEM_COLUMN of_frames[] = {{"frame", "Frame", line},
                                           {"level", "Level", line},
                                           {"address", "Address", address},
                                           {"filtered", "Filtered", line},
                                           module,
                                           file,
                                           line_number,
                                           function};
inline constexpr MEM_COLUMN of_nodes[] = {{"node", "Node", line},
                                          {"parent", "Parent", line},
                                          {"frame", "Frame", line},
                                          {"site", "Site", site},
                                          current,
                                          current_blocks,
                                          {"current_requested", "Current requested bytes", bytes},
                                          peak,
                                          peak_blocks,
                                          cumulative,
                                          cumulative_blocks,
                                          requested,
                                          temporary_blocks};
inline constexpr std::size_t columns_before_figures = 4;  // of the nodes
inline constexpr MEM_COLUMN of_clock[] = {
    {"sample", "Sample", line}, {"milliseconds", "Milliseconds", line}, {"event", "Event", line}};
inline constexpr MEM_COLUMN of_resident[] = {{"milliseconds", "Milliseconds", line},
                                             {"event", "Event", line},
                                             {"point", "Point", text},
                                             {"resident", "Resident", bytes},
                                             {"blocks", "Blocks", bytes},
                                             {"rounding", "Rounding", bytes},
                                             {"unknown_blocks", "Unknown blocks", bytes},
                                             {"tracker_blocks", "Tracker blocks", bytes},
                                             {"kept_by_threads", "Kept by threads", bytes},
                                             {"kept_in_between", "Kept in between", bytes},
                                             {"kept_free", "Kept free", bytes},
                                             {"allocator_tables", "Allocator tables", bytes},
                                             {"never_touched", "Never touched", bytes},
                                             {"tracker_mappings", "Tracker mappings", bytes},
                                             {"stacks", "Stacks", bytes},
                                             {"code", "Code", bytes},
                                             {"module_data", "Module data", bytes},
                                             {"files", "Files", bytes},
                                             {"shared_memory", "Shared memory", bytes},
                                             {"anonymous", "Anonymous", bytes},
                                             {"unexplained", "Unexplained", bytes},
                                             {"given_back", "Given back", bytes}};
inline constexpr std::size_t columns_before_parts = 3;  // of the resident memory
inline constexpr MEM_COLUMN of_process[] = {
    {"page_faults", "page_faults", line},
    {"commit_charge", "commit_charge", bytes},
    {"resident", "resident", bytes},
    {"profiler_num_allocs", "profiler_num_allocs", blocks},
    {"profiler_num_deallocs", "profiler_num_deallocs", blocks},
    {"profiler_num_outstanding", "profiler_num_outstanding", blocks},
    {"profiler_requested_total", "profiler_requested_total", bytes},
    {"profiler_requested_outstanding", "profiler_requested_outstanding", bytes},
    {"profiler_allocated_total", "profiler_allocated_total", bytes},
    {"profiler_allocated_outstanding", "profiler_allocated_outstanding", bytes}};
}  // namespace mem_column

namespace mem_report {
using namespace mem_column;
inline constexpr MEM_REPORT call_sites = {"fileline", "MEM: TBB Fileline Tracking Memory Snapshot.",
                                          of_call_sites};
inline constexpr MEM_REPORT modules = {"subsystem", "MEM: TBB Subsystem Tracking Memory Snapshot.",
                                       of_modules};
inline constexpr MEM_REPORT bins = {"pbin_stats", "Memory Tracking - Profile Bin Stats", of_bins};
inline constexpr MEM_REPORT tags = {"pbin_tag_stats", "Memory Tracking - Profile Tag Stats", of_bins};
inline constexpr MEM_REPORT bins_in_mebibytes = {"pbin_stats_mb", "Memory Tracking - Profile Bin Stats (MiB)",
                                                 of_bins_in_mebibytes};
inline constexpr MEM_REPORT tags_in_mebibytes = {
    "pbin_tag_stats_mb", "Memory Tracking - Profile Tag Stats (MiB)", of_bins_in_mebibytes};
inline constexpr MEM_REPORT clock = {"clock", "MEM: Clock.", of_clock};
inline constexpr MEM_REPORT resident = {"resident", "MEM: Resident Memory.", of_resident};
inline constexpr MEM_REPORT process = {"auxiliary_timeline", "MEM: TBB Auxiliary Timeline", of_process};
// Has two tables, one of frames and one of nodes.
inline constexpr MEM_REPORT call_paths = {"call_paths", "MEM: Call Paths.", of_nodes};
// Timelines have a column for each module or tag.
inline constexpr const char* plain_timeline_title = "MEM: TBB Module Tracking Memory Timeline.";
inline constexpr const char* detailed_timeline_title = "MEM: TBB Module Tracking Detailed Memory Timeline.";
inline constexpr MEM_REPORT module_timeline = {"timeline", plain_timeline_title, {}};
inline constexpr MEM_REPORT module_timeline_detailed = {"timeline_detailed", detailed_timeline_title, {}};
inline constexpr MEM_REPORT blocks_timeline = {"cumulative_blocks_timeline", plain_timeline_title, {}};
inline constexpr MEM_REPORT blocks_timeline_detailed = {
    "cumulative_blocks_timeline_detailed", detailed_timeline_title, {}};
inline constexpr MEM_REPORT tag_timeline = {"pbin_tag_timeline_detailed", detailed_timeline_title, {}};
// Sentences instead of columns.
inline constexpr MEM_REPORT leaks = {"leak_warning", "MEM: TBB Leak Checking Summary.", {}};
}  // namespace mem_report
