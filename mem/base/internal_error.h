// Internal errors of the library: a violated condition ends the process.
#pragma once

#include "platform/ktl_err.h"

// The two sources that messages name.
inline constexpr const char* mem_tracker_source = "mem/mem_tbb_tracker";
inline constexpr const char* mem_profile_bins_source = "mem/mem_tbb_tracker_profile_bins";

inline void mem_require(bool holds, const char* condition, int line,
                        const char* source = mem_tracker_source) {
    if (!holds) [[unlikely]]
        err_report_internal_error(condition, "MEM", source, line);
}
