#include "mem/base/tracking_word.h"

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <cstdlib>
#include <cstring>

#include "ktl_mem/services.h"
#include "mem/base/configured_number.h"
#include "mem/base/internal_error.h"
#include "mem/base/messages.h"
#include "mem/settings/tracking_settings.h"
#include "platform/modules.h"

constinit MEM_TRACKING_WORD_PAGE mem_tracking_word;
constinit MEM_PLAIN_WORD<std::uint64_t> mem_library_snapshot_period{
    MEM_TRACKING_SAMPLING{}.library_snapshot_period};
constinit MEM_PLAIN_WORD<std::uint64_t> mem_fileline_peak_snapshot_threshold{
    MEM_TRACKING_SAMPLING{}.fileline_peak_snapshot_threshold};
constinit MEM_PLAIN_WORD<std::uint32_t> mem_reports_due;
constinit MEM_PLAIN_WORD<bool> mem_tbb_memory_tracking_enabled;
constinit MEM_PLAIN_WORD<bool> mem_tbb_bin_tags_enabled;
constinit MEM_PLAIN_WORD<bool> mem_tbb_no_msg_debug;

namespace {

constexpr std::uint32_t executable_path_size = 260;

std::string executable_stem() {
    char path[executable_path_size] = {};
    const std::uint32_t length = GetModuleFileNameA(nullptr, path, executable_path_size);
    mem_require(length != 0, mem_conditions::executable_has_a_name);
    return boost::filesystem::path(path).stem().string();
}

bool another_executable_is_profiled() {
    const std::string only = mem_cfg_get_value("mem_only_profile_single_executable");
    return !only.empty() && executable_stem() != only;
}

// By other names than its own.
bool is_implied(std::uint32_t bits) {
    if (bits == MEM_TRACKING_ALLOC_DEALLOC) return mem_cfg_is_on("mem_track_user_memory", false);
    return bits == MEM_TRACKING_LEAKS_FAST && mem_env_switch_is_on("MEM_LEAK_TRACKING_IN_ZA_MODE");
}

// The variable decides when it is on; the key is asked only when it is not.
bool is_asked_for(const MEM_TRACKING_SETTING& setting) {
    return mem_env_switch_is_on(setting.variable) || mem_cfg_is_on(setting.key, false) ||
           is_implied(setting.bits);
}

bool is_all(const MEM_TRACKING_SETTING& setting) {
    return setting.bits == MEM_TRACKING_ALL;
}

std::uint32_t bits_asked_for(bool beside_all) {
    std::uint32_t bits = 0;
    for (const MEM_TRACKING_SETTING& setting : mem_tracking_settings) {
        const bool is_leaks_again =
            setting.bits == MEM_TRACKING_LEAKS_FAST && (bits & MEM_TRACKING_LEAKS) != 0;
        if (is_all(setting) || setting.is_beside_all != beside_all || is_leaks_again) continue;
        if (is_asked_for(setting)) bits |= setting.bits;
    }
    return bits;
}

// A number that the event path goes by. The environment is read leniently, zero and text without digits leave
// what stands; the configuration outranks it and is read strictly. None may be zero, since some are divisors,
// or beyond `most`.
std::uint64_t sampling_number(const char* variable, const char* key, std::uint64_t standing,
                              std::uint64_t most) {
    if (const char* text = std::getenv(variable)) {
        const std::uint64_t number = std::strtoull(text, nullptr, 10);
        if (number != 0 && number <= most) standing = number;
    }
    const std::string configured = mem_cfg_get_value(key);
    if (configured.empty()) return standing;
    const auto number = mem_parse_configured_unsigned(key, configured);
    if (!number) return standing;
    if (*number != 0 && *number <= most) return *number;
    mem_msg_debug("ignoring \"%s\" of %s: must be from 1 to %llu; %llu stays in force", configured.c_str(),
                  key, static_cast<unsigned long long>(most), static_cast<unsigned long long>(standing));
    return standing;
}

}  // namespace

bool mem_env_switch_is_on(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' && std::strcmp(value, "0") != 0;
}

MEM_TRACKING_GRANULARITY mem_get_tracking_granularity_from_env() {
    if (another_executable_is_profiled()) return MEM_TRACKING_NONE;
    const bool everything = is_asked_for(*std::ranges::find_if(mem_tracking_settings, is_all));
    const std::uint32_t bits =
        bits_asked_for(true) | (everything ? std::uint32_t{MEM_TRACKING_ALL} : bits_asked_for(false));
    mem_reports_due = mem_reports_due | (bits & mem_bits_with_report());
    return static_cast<MEM_TRACKING_GRANULARITY>(bits);
}

MEM_TRACKING_SAMPLING mem_get_tracking_sampling_from_env() {
    MEM_TRACKING_SAMPLING sampling;
    sampling.library_snapshot_period =
        sampling_number("VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "mem_profile_library_snapshot_period",
                        sampling.library_snapshot_period, UINT64_MAX);
    // The peak test divides signed totals by this one.
    sampling.fileline_peak_snapshot_threshold = sampling_number(
        "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD",
        "mem_profile_fileline_peak_snapshot_threshold", sampling.fileline_peak_snapshot_threshold, INT64_MAX);
    return sampling;
}

std::uint32_t mem_get_most_call_path_nodes_from_env() {
    return static_cast<std::uint32_t>(
        sampling_number("VELDRIN_MEM_PROFILE_CALL_PATH_NODES", "mem_profile_call_path_nodes",
                        mem_default_call_path_nodes, mem_default_call_path_nodes));
}

bool mem_tracking_is_enabled(MEM_TRACKING_GRANULARITY bits) {
    return (mem_tracking_word & bits) == bits;
}

bool mem_get_tbb_track_alloc_dealloc() {
    return mem_tracking_is_enabled(MEM_TRACKING_ALLOC_DEALLOC);
}

bool mem_get_tbb_memory_tracking_enabled() {
    return mem_tbb_memory_tracking_enabled;
}

MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT::MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT()
    : set_here(!mem_tbb_no_msg_debug) {
    mem_tbb_no_msg_debug = true;
}

MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT::~MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT() {
    if (set_here) mem_tbb_no_msg_debug = false;
}
