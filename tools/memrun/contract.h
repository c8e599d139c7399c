// What the launcher and its preloaded agent agree on: the variables that carry the launcher's wishes into
// the program, and the notes in which the agent writes how the program ended.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

#include "mem/settings/tracking_settings.h"

namespace memrun {

// Every variable of the launcher's own begins with this.
inline constexpr std::string_view own_prefix = "KTL_MEMRUN_";

inline constexpr const char* dir_variable = "KTL_MEMRUN_DIR";      // output folder, absolute
inline constexpr const char* name_variable = "KTL_MEMRUN_NAME";    // middle word of the file names
inline constexpr const char* pid_variable = "KTL_MEMRUN_PID";      // the process that the launcher started
inline constexpr const char* program_variable = "KTL_MEMRUN_EXE";  // the executable that is to be tracked
inline constexpr const char* follow_variable =
    "KTL_MEMRUN_FOLLOW";  // set: what the program starts is tracked too
inline constexpr const char* forks_variable = "KTL_MEMRUN_FORKS";  // set: forked children are tracked too
inline constexpr const char* log_variable = "KTL_MEMRUN_LOG";      // set: write the allocation log
inline constexpr const char* mappings_variable = "KTL_MEMRUN_MAPPINGS";  // set: announce anonymous mappings

// A variable of the user's that the launcher has to change travels as this prefix and the user's
// "NAME=VALUE", at its old place in the environment. Cutting the prefix off restores it without any memory.
inline constexpr std::string_view saved_prefix = "KTL_MEMRUN_SAVED_";

// What the launcher's options decide, beside what is tracked (mem/settings/tracking_settings.h). A value that
// the user's environment holds is put aside for the tracker and put back for the program. "debug_msg" is
// among them because its lines would mix with the program's output.
inline constexpr auto other_governed_names = std::to_array<std::string_view>({
    "LD_PRELOAD",
    "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD",
    "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD",
    "MEM_LEAK_TRACKING_IN_ZA_MODE",
    "MEM_PRINT_LIB_LOAD",
    "mem_only_profile_single_executable",
    "mem_track_user_memory",
    "mem_profile_share_call_paths",
    "mem_track_forked_children",
    "mem_profile_library_snapshot_period",
    "mem_profile_fileline_peak_snapshot_threshold",
    "mem_profile_stack_trace_ignore_depth",
    "mem_profile_with_incomplete_fileline_info",
    "mem_profile_with_best_names",
    "mem_names_are_served",
    "mem_user_defined_filters_file",
    "mem_alloc_pattern",
    "mem_alloc_pattern_hex",
    "mem_free_pattern",
    "mem_free_pattern_hex",
    "mem_print_allocations",
    "debug_msg",
});

// Notes lie in this folder below the output folder while the program runs, a file for each tracked process,
// named as the middle word of its reports. A note is made of lines "KEY VALUE":
//   program PATH     written at the start, as the next one
//   process PID
//   allocator PATH   the object whose malloc serves the program, when it is not the tracked one
//   alone            the launcher did not answer, so that nothing is shared with it
//   silence          it stopped answering, so that code was named inside the program
//   unbound PATH     the first object that was opened without the RTLD_DEEPBIND that it was to have
//   failed BYTES     an allocation of that many bytes was refused, 0 when the size is not known
//   stats CURRENT_BYTES CURRENT_BLOCKS PEAK_BYTES PEAK_BLOCKS
//   forked BYTES BLOCKS   a forked child, which began with what its parent held then
//   left             it is about to put a program in its place that is not tracked; "stayed": it could not
//   child PID        a child that there was when the process ended
//   anew MS         the tables began anew by an order, milliseconds since the machine's start
//   ended HOW        "exit" or the number of the signal; written after the reports
inline constexpr const char* notes_folder = ".memrun";

// Below the output folder, while the program runs and after that: all reports as of now, those of each mark,
// and the call paths as of now.
inline constexpr const char* checkpoint_folder = "checkpoint";
inline constexpr const char* marks_folder = "marks";
inline constexpr const char* paths_folder = "paths";

// The variable's name of a "NAME=VALUE".
constexpr std::string_view name_of(std::string_view entry) {
    return entry.substr(0, entry.find('='));
}

constexpr bool is_governed(std::string_view name) {
    return mem_asks_for_tracking(name) ||
           std::ranges::find(other_governed_names, name) != other_governed_names.end();
}

}  // namespace memrun
