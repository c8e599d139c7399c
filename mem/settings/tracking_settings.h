// What can be tracked, each under all its names: the bit of the tracking word, the environment variable and
// the configuration key that ask for it, its report, and the launcher's option. Readable by tools: includes
// only the bits.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "ktl_mem/tracking.h"

struct MEM_TRACKING_SETTING {
    MEM_TRACKING_GRANULARITY bits;
    const char* variable;
    const char* key;
    const char* option;
    const char* help;             // of the option
    bool is_beside_all = false;   // "all" leaves it as it is
    bool has_report = false;      // one that is due from the start on; leaks go by the word at the end
    bool can_be_refused = false;  // by --no-...
};

inline constexpr MEM_TRACKING_SETTING mem_tracking_settings[] = {
    {.bits = MEM_TRACKING_PER_FILELINE,
     .variable = "VELDRIN_MEM_PROFILE_PER_FILELINE",
     .key = "mem_profile_per_fileline",
     .option = "--lines",
     .help = "Bytes and blocks of every call site, by file and line",
     .has_report = true},
    {.bits = MEM_TRACKING_PER_LIBRARY,
     .variable = "VELDRIN_MEM_PROFILE_PER_LIBRARY",
     .key = "mem_profile_per_library",
     .option = "--modules",
     .help = "Bytes and blocks of every module, over time",
     .has_report = true},
    {.bits = MEM_TRACKING_ALLOC_DEALLOC,
     .variable = "VELDRIN_MEM_PROFILE_PER_BIN",
     .key = "mem_profile_per_bin",
     .option = "--bins",
     .help = "Process-wide counters, and the measuring of profile bins"},
    {.bits = MEM_TRACKING_PROFILE_BIN_TAGS,
     .variable = "VELDRIN_MEM_PROFILE_BIN_TAG_PLOT",
     .key = "mem_profile_per_bin_detailed",
     .option = "--bin-tags",
     .help = "Bytes and blocks of every bin and tag, over time",
     .has_report = true},
    // The full leak report comes before the short one, which it stands for.
    {.bits = MEM_TRACKING_LEAKS,
     .variable = "VELDRIN_MEM_CHECK_LEAKS",
     .key = "mem_check_leaks",
     .option = "--leaks",
     .help = "What was never freed, by call site"},
    {.bits = MEM_TRACKING_LEAKS_FAST,
     .variable = "VELDRIN_MEM_CHECK_LEAKS_FAST",
     .key = "mem_check_leaks_fast",
     .option = "--fast-leaks",
     .help = "What was never freed, as two numbers, at little cost"},
    {.bits = MEM_TRACKING_AUXILIARY_TIMELINE,
     .variable = "VELDRIN_MEM_PROFILE_AUXILIARY_TIMELINE",
     .key = "mem_profile_auxiliary_timeline",
     .option = "--aux",
     .help = "What the system says of the process, over time",
     .has_report = true},
    {.bits = MEM_TRACKING_RESIDENT,
     .variable = "VELDRIN_MEM_PROFILE_RESIDENT",
     .key = "mem_profile_resident",
     .option = "--resident",
     .help = "The resident memory taken apart, over time; on unless no more than counters are asked for",
     .is_beside_all = true,
     .has_report = true,
     .can_be_refused = true},
    {.bits = MEM_TRACKING_ALL,
     .variable = "VELDRIN_MEM_PROFILE_ALL",
     .key = "mem_profile_all",
     .option = "--all",
     .help = "Everything above but --fast-leaks"},
    {.bits = MEM_TRACKING_CALL_PATHS,
     .variable = "VELDRIN_MEM_PROFILE_CALL_PATHS",
     .key = "mem_profile_call_paths",
     .option = "--paths",
     .help = "Who called: figures for every path of calls, and the exact peak; on wherever stacks are walked",
     .is_beside_all = true,
     .has_report = true,
     .can_be_refused = true},
};

// Those with a report that is due from the start on.
constexpr std::uint32_t mem_bits_with_report() {
    std::uint32_t bits = 0;
    for (const MEM_TRACKING_SETTING& setting : mem_tracking_settings)
        if (setting.has_report) bits |= setting.bits;
    return bits;
}

// Whether an entry of the environment asks for tracking: as a variable, or as a key of the configuration.
constexpr bool mem_asks_for_tracking(std::string_view name) {
    return std::ranges::any_of(mem_tracking_settings, [name](const MEM_TRACKING_SETTING& setting) {
        return name == setting.variable || name == setting.key;
    });
}
