#include "mem/base/tracking_word.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>

#include "ktl_mem/services.h"

namespace {

using SETTINGS = std::map<std::string, std::string>;

void use(const SETTINGS& settings) {
    clearenv();
    for (const auto& [name, value] : settings) setenv(name.c_str(), value.c_str(), 1);
    for (auto* flag :
         {&mem_report_fileline, &mem_report_library, &mem_report_bin_tags, &mem_report_auxiliary_timeline})
        *flag = false;
}

// f, l, b, a for the report flags that are set.
std::string flags() {
    return std::string(mem_report_fileline ? "f" : "") + (mem_report_library ? "l" : "") +
           (mem_report_bin_tags ? "b" : "") + (mem_report_auxiliary_timeline ? "a" : "");
}

TEST(TrackingWord, ComesFromVariablesAndKeys) {
    struct {
        SETTINGS settings;
        std::uint32_t word;
        const char* flags;
    } const cases[] = {
        {{}, 0, ""},
        {{{"VELDRIN_MEM_PROFILE_ALL", "1"}}, 95, "flba"},
        {{{"VELDRIN_MEM_PROFILE_ALL", "00"}}, 95, "flba"},
        {{{"VELDRIN_MEM_PROFILE_ALL", "no"}}, 95, "flba"},
        {{{"VELDRIN_MEM_PROFILE_ALL", "0"}}, 0, ""},
        {{{"VELDRIN_MEM_PROFILE_ALL", ""}}, 0, ""},
        {{{"VELDRIN_MEM_PROFILE_ALL", "0"}, {"mem_profile_all", "on"}}, 95, "flba"},
        {{{"VELDRIN_MEM_PROFILE_ALL", "1"}, {"mem_only_profile_single_executable", "another"}}, 0, ""},
        {{{"VELDRIN_MEM_PROFILE_ALL", "1"}, {"mem_only_profile_single_executable", "TEST_BASE"}}, 0, ""},
        {{{"VELDRIN_MEM_PROFILE_ALL", "1"}, {"mem_only_profile_single_executable", "test_base"}}, 95, "flba"},
        {{{"VELDRIN_MEM_PROFILE_PER_BIN", "1"}}, 1, ""},
        {{{"mem_profile_per_bin", "on"}}, 1, ""},
        {{{"mem_track_user_memory", "on"}}, 1, ""},
        {{{"VELDRIN_MEM_PROFILE_BIN_TAG_PLOT", "x"}}, 2, "b"},
        {{{"mem_profile_per_bin_detailed", "1"}}, 2, "b"},
        {{{"VELDRIN_MEM_PROFILE_PER_LIBRARY", "1"}, {"mem_profile_per_fileline", "on"}}, 12, "fl"},
        {{{"VELDRIN_MEM_CHECK_LEAKS", "1"}, {"VELDRIN_MEM_CHECK_LEAKS_FAST", "1"}}, 16, ""},
        {{{"mem_check_leaks", "on"}, {"MEM_LEAK_TRACKING_IN_ZA_MODE", "1"}}, 16, ""},
        {{{"VELDRIN_MEM_CHECK_LEAKS_FAST", "1"}}, 32, ""},
        {{{"mem_check_leaks_fast", "on"}}, 32, ""},
        {{{"MEM_LEAK_TRACKING_IN_ZA_MODE", "1"}}, 32, ""},
        {{{"MEM_LEAK_TRACKING_IN_ZA_MODE", "0"}}, 0, ""},
        {{{"VELDRIN_MEM_PROFILE_AUXILIARY_TIMELINE", "1"}}, 64, "a"},
        {{{"mem_profile_auxiliary_timeline", "on"}, {"mem_check_leaks_fast", "on"}}, 96, "a"},
    };
    for (const auto& c : cases) {
        use(c.settings);
        const std::string shown = c.settings.empty() ? "nothing" : c.settings.begin()->first;
        EXPECT_EQ(mem_get_tracking_granularity_from_env(), c.word) << shown;
        EXPECT_EQ(flags(), c.flags) << shown;
    }
    use({});
}

TEST(TrackingWord, SamplingNumbers) {
    const char* const period_variable = "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD";
    const char* const period_key = "mem_profile_library_snapshot_period";
    const char* const threshold_variable = "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD";
    const char* const threshold_key = "mem_profile_fileline_peak_snapshot_threshold";
    struct {
        SETTINGS settings;
        std::uint64_t period, threshold;
    } const cases[] = {
        {{}, 131072, 134217728},
        {{{period_variable, "1000"}}, 1000, 134217728},
        {{{period_variable, "many"}}, 131072, 134217728},
        {{{period_variable, "0"}}, 131072, 134217728},
        {{{period_variable, "1000"}, {period_key, "2000"}}, 2000, 134217728},
        {{{period_key, "2000x"}}, 2000, 134217728},
        {{{period_key, "many"}}, 131072, 134217728},
        {{{period_variable, "1000"}, {period_key, "many"}}, 1000, 134217728},
        {{{period_key, "0"}}, 131072, 134217728},
        {{{period_key, "99999999999999999999999"}}, 131072, 134217728},
        {{{threshold_variable, "4096"}}, 131072, 4096},
        {{{threshold_key, "1"}}, 131072, 1},
        {{{threshold_key, "0"}}, 131072, 134217728},
        {{{threshold_key, "9223372036854775808"}}, 131072, 134217728},
        {{{threshold_key, "9223372036854775807"}}, 131072, 9223372036854775807},
    };
    for (const auto& c : cases) {
        use(c.settings);
        const std::string shown = c.settings.empty() ? "nothing" : c.settings.begin()->second;
        const MEM_TRACKING_SAMPLING sampling = mem_get_tracking_sampling_from_env();
        EXPECT_EQ(sampling.library_snapshot_period, c.period) << shown;
        EXPECT_EQ(sampling.fileline_peak_snapshot_threshold, c.threshold) << shown;
    }
}

TEST(TrackingWord, ABadNumberIsNamedInOneDebugLine) {
    use({{"mem_profile_library_snapshot_period", "many"}, {"debug_msg", "on"}});
    testing::internal::CaptureStdout();
    mem_get_tracking_sampling_from_env();
    std::fflush(stdout);
    const std::string line = testing::internal::GetCapturedStdout();
    EXPECT_NE(line.find("mem_profile_library_snapshot_period"), std::string::npos) << line;
    EXPECT_NE(line.find("\"many\""), std::string::npos) << line;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
    use({});
}

TEST(TrackingWord, BitsAreTestedTogether) {
    mem_tracking_word = 8;
    EXPECT_FALSE(mem_tracking_is_enabled(MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_PER_FILELINE));
    EXPECT_TRUE(mem_tracking_is_enabled(MEM_TRACKING_PER_FILELINE));
    EXPECT_TRUE(mem_tracking_is_enabled(MEM_TRACKING_NONE));
    EXPECT_FALSE(mem_get_tbb_track_alloc_dealloc());
    mem_tracking_word = 0;
}

TEST(TrackingWord, MessageGuardsNest) {
    {
        const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT outer;
        { const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT inner; }
        EXPECT_TRUE(mem_tbb_no_msg_debug);
    }
    EXPECT_FALSE(mem_tbb_no_msg_debug);
    mem_tbb_no_msg_debug = true;
    { const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT guard; }
    EXPECT_TRUE(mem_tbb_no_msg_debug) << "set by someone else, stays set";
    mem_tbb_no_msg_debug = false;
}

}  // namespace
