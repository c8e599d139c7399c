#include "mem/base/tracking_word.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <sstream>

#include "ktl_mem/services.h"
#include "tests/attribution/told_messages.h"

namespace {

// Makes the environment of words NAME=value; the last one's is the result.
std::string use(const char* settings) {
    clearenv();
    std::string name, value;
    std::istringstream words(settings);
    while (std::getline(words, name, '=') && std::getline(words, value, ' '))
        setenv(name.c_str(), value.c_str(), 1);
    mem_reports_due = 0;
    return "\"" + value + "\" of " + name;
}

// f, l, b, a for the reports that are due.
std::string flags() {
    std::string due;
    for (const auto& [bit, letter] : {std::pair{8, 'f'}, {4, 'l'}, {2, 'b'}, {64, 'a'}})
        if (mem_report_is_due(static_cast<std::uint32_t>(bit))) due += letter;
    return due;
}

TEST(TrackingWord, ComesFromVariablesAndKeys) {
    const std::tuple<const char*, std::uint32_t, const char*> cases[] = {
        {"", 0, ""},
        {"VELDRIN_MEM_PROFILE_ALL=1", 95, "flba"},
        {"VELDRIN_MEM_PROFILE_ALL=00", 95, "flba"},
        {"VELDRIN_MEM_PROFILE_ALL=0", 0, ""},
        {"VELDRIN_MEM_PROFILE_ALL= ", 0, ""},
        {"VELDRIN_MEM_PROFILE_ALL=0 mem_profile_all=on", 95, "flba"},
        {"VELDRIN_MEM_PROFILE_ALL=1 mem_only_profile_single_executable=another", 0, ""},
        {"VELDRIN_MEM_PROFILE_ALL=1 mem_only_profile_single_executable=TEST_BASE", 0, ""},
        {"VELDRIN_MEM_PROFILE_ALL=1 mem_only_profile_single_executable=test_base", 95, "flba"},
        {"VELDRIN_MEM_PROFILE_PER_BIN=1", 1, ""},
        {"mem_profile_per_bin=on", 1, ""},
        {"mem_track_user_memory=on", 1, ""},
        {"VELDRIN_MEM_PROFILE_BIN_TAG_PLOT=x", 2, "b"},
        {"mem_profile_per_bin_detailed=1", 2, "b"},
        {"VELDRIN_MEM_PROFILE_PER_LIBRARY=1 mem_profile_per_fileline=on", 12, "fl"},
        {"mem_profile_per_library=on", 4, "l"},
        {"VELDRIN_MEM_PROFILE_PER_FILELINE=1", 8, "f"},
        {"VELDRIN_MEM_CHECK_LEAKS=1 VELDRIN_MEM_CHECK_LEAKS_FAST=1", 16, ""},
        {"mem_check_leaks=on MEM_LEAK_TRACKING_IN_ZA_MODE=1", 16, ""},
        {"VELDRIN_MEM_CHECK_LEAKS_FAST=1", 32, ""},
        {"mem_check_leaks_fast=on", 32, ""},
        {"MEM_LEAK_TRACKING_IN_ZA_MODE=1", 32, ""},
        {"VELDRIN_MEM_PROFILE_AUXILIARY_TIMELINE=1", 64, "a"},
        {"mem_profile_auxiliary_timeline=on mem_check_leaks_fast=on", 96, "a"},
    };
    for (const auto& [settings, word, set_flags] : cases) {
        use(settings);
        EXPECT_EQ(mem_get_tracking_granularity_from_env(), word) << settings;
        EXPECT_EQ(flags(), set_flags) << settings;
    }
    use("");
}

// A bad number of the configuration is named in one debug line.
TEST(TrackingWord, SamplingNumbers) {
    constexpr bool told = true;
    struct {
        const char* settings;
        std::uint64_t period, threshold;
        bool is_told = false;
    } const cases[] = {
        {"", 131072, 134217728},
        {"VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1000", 1000, 134217728},
        {"VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=many", 131072, 134217728},
        {"VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1000 mem_profile_library_snapshot_period=2000x", 2000,
         134217728},
        {"VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1000 mem_profile_library_snapshot_period=many", 1000,
         134217728, told},
        {"mem_profile_library_snapshot_period=0", 131072, 134217728, told},
        {"mem_profile_library_snapshot_period=99999999999999999999999", 131072, 134217728, told},
        {"VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD=9223372036854775808", 131072, 134217728},
        {"VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD=4096", 131072, 4096},
        {"mem_profile_fileline_peak_snapshot_threshold=1", 131072, 1},
        {"mem_profile_fileline_peak_snapshot_threshold=9223372036854775808", 131072, 134217728, told},
        {"mem_profile_fileline_peak_snapshot_threshold=9223372036854775807", 131072, 9223372036854775807},
    };
    mem_set_msg_local_vdebug_callback(keep_message);
    for (const auto& c : cases) {
        messages.clear();
        const std::string last = use(c.settings);
        const MEM_TRACKING_SAMPLING sampling = mem_get_tracking_sampling_from_env();
        EXPECT_EQ(sampling.library_snapshot_period, c.period) << c.settings;
        EXPECT_EQ(sampling.fileline_peak_snapshot_threshold, c.threshold) << c.settings;
        EXPECT_EQ(messages.size(), c.is_told ? 1 : 0) << c.settings;
        for (const std::string& message : messages) EXPECT_THAT(message, testing::HasSubstr(last));
    }
    mem_set_msg_local_vdebug_callback(nullptr);
    use("");
}

TEST(TrackingWord, MessageGuardsNest) {
    for (const bool by_someone_else : {false, true}) {
        mem_tbb_no_msg_debug = by_someone_else;
        {
            const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT outer;
            { const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT inner; }
            EXPECT_TRUE(mem_tbb_no_msg_debug);
        }
        EXPECT_EQ(mem_tbb_no_msg_debug, by_someone_else);
    }
    mem_tbb_no_msg_debug = false;
}

}  // namespace
