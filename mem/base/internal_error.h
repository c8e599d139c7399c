// Internal errors: a violated condition ends the process with a message that names condition, source and
// line.
//
// People search for these messages, so they stay the same from release to release: source and line name the
// condition, whatever file tests it. A condition without a number of its own shows the line that tests it.
#pragma once

#include "platform/ktl_err.h"

struct MEM_CONDITION {
    const char* text;
    int line = 0;  // 0: that of the test
    const char* source = "mem/mem_tbb_tracker";
};

// Conditions, by what holds when they do.
namespace mem_conditions {

// The gate.
inline constexpr MEM_CONDITION no_cat_beside_mouse = {"cats == 0", 907};
inline constexpr MEM_CONDITION mouse_was_inside = {"mice >= 0", 908};
inline constexpr MEM_CONDITION cat_was_approaching = {"catsApproaching >= 0", 934};
inline constexpr MEM_CONDITION no_mouse_beside_cat = {"mice == 0", 900};
inline constexpr MEM_CONDITION cat_was_alone = {"cats == 0", 901};

// Calls that need the tables, before the tracker's start.
inline constexpr const char* tables_exist = "mem_tbb_tracker_is_inited()";
inline constexpr MEM_CONDITION started_at_snapshot = {tables_exist, 1705};
inline constexpr MEM_CONDITION started_at_reset = {tables_exist, 2474};
inline constexpr MEM_CONDITION started_at_block_query = {tables_exist, 2514};
inline constexpr MEM_CONDITION started_at_module_query = {tables_exist, 2545};

// The start.
inline constexpr MEM_CONDITION name_is_given = {"exe_string != nullptr", 1724};
inline constexpr MEM_CONDITION name_exists_at_change = {"mem_tbb_exe_string != nullptr", 1725};
inline constexpr MEM_CONDITION name_exists = {"mem_tbb_exe_string != nullptr"};
inline constexpr MEM_CONDITION unwinder_exists = {"mem_tbb_unwinder", 2793};
inline constexpr MEM_CONDITION symbolizer_exists = {"mem_tbb_symbolizer", 2832};
inline constexpr MEM_CONDITION symbolizer_serves = {"symbolizer"};
inline constexpr MEM_CONDITION executable_has_a_name = {"GetModuleFileName(NULL, szRawPath, MAX_PATH)", 4064};

// Bins.
inline constexpr MEM_CONDITION bin_number_fits = {"current_pbin_id <= std::numeric_limits<PB_ID>::max()"};
inline constexpr MEM_CONDITION tags_only_come = {"new_num_tags >= old_num_tags"};
inline constexpr const char* profile_bins_source = "mem/mem_tbb_tracker_profile_bins";
inline constexpr MEM_CONDITION bin_frame_is_open = {"!stack.empty()", 0, profile_bins_source};
inline constexpr MEM_CONDITION bin_is_open = {"!m_pb_id_stack.empty()", 0, profile_bins_source};
inline constexpr MEM_CONDITION innermost_bin_is_closed = {"name == get_curr_name()", 0, profile_bins_source};

}  // namespace mem_conditions

inline void mem_require(bool holds, const MEM_CONDITION& condition, int line_of_test = __builtin_LINE()) {
    if (!holds) [[unlikely]]
        err_report_internal_error(condition.text, "MEM", condition.source,
                                  condition.line != 0 ? condition.line : line_of_test);
}
