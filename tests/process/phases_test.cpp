#include <gtest/gtest.h>

#include <regex>

#include "tests/process/child_process.h"

namespace {

std::string masked(std::string text) {
    const std::pair<const char*, const char*> masks[] = {{"Time spent dumping:.*seconds\\.", "<time>"},
                                                         {"/[^\t\n]*/", ""}};
    for (const auto& [what, by] : masks) text = std::regex_replace(text, std::regex(what), by);
    return text;
}

ENDING run_host(std::vector<std::string> command) {
    command.insert(command.begin(), PHASES_HOST);
    return run_program({.command = std::move(command),
                        .environment = {with_allocator(), "VELDRIN_MEM_PROFILE_ALL=1",
                                        "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD=1000000"}});
}

// What modules 1 to `count` must leave. The library's own load makes one event, the first sample; the run
// begins with a reset. The series with the lowest maximum, of what has no module, is the nineteenth when
// there are 18 modules.
std::string timeline_of(int count) {
    const bool in_misc = count == 18;
    std::string names = in_misc ? "" : "\tOTHER";
    std::string zeros, values;
    for (int i = 1; i <= count; ++i) {
        names += "\tm" + std::to_string(i);
        zeros += "\t0";
        values += "\t" + std::to_string(i * 8192);
    }
    const std::string held = (in_misc ? "\t0" : "\t0\t0") + values + "\n";
    return "MEM: TBB Module Tracking Memory Timeline.\n\n\tMisc" + names + "\nOther" +
           (in_misc ? "\t16" : "\t0\t16") + zeros + "\nloading" + held + "Other" + held + "Other" + held +
           "<time>\n";
}

std::string leaks_of(int count) {
    std::string lines = "MEM: TBB Leak Checking Summary.\n\n";
    for (int i = count; i >= 1; --i)
        lines += "m" + std::to_string(i) + " leaked " + std::to_string(i * 8192) +
                 " bytes in 1 object(s) allocated at phases_module.c:5 allocate_in_module\n";
    return lines + "\nTotal leaked bytes: " + std::to_string(count * (count + 1) / 2 * 8192) + "\n";
}

// Of the last module, which makes the peak.
std::string subsystem_of(int number) {
    const std::string held = std::to_string(number * 8192) + "\t";
    const std::string peak = std::to_string(number * 8192 + 1048576) + "\t";
    return "blocks\nm" + std::to_string(number) + "\t" + held + peak + peak + peak + peak + "0\t1\t2\t2\n";
}

TEST(Phases, ReportsTellTheModulesOfTheRun) {
    for (const int count : {17, 18}) {
        SCOPED_TRACE(count);
        const ENDING ending = run_host({"modules", std::to_string(count), PHASES_MODULE});
        ASSERT_EQ(ending.how(), "exit 0") << ending.error;
        EXPECT_EQ(masked(ending.files.at("mem_tbb_timeline.vii.log")), timeline_of(count));
        EXPECT_EQ(masked(ending.files.at("mem_tbb_leak_warning.vii.log")), leaks_of(count));
        const std::string& subsystems = ending.files.at("mem_tbb_subsystem.vii.log");
        EXPECT_NE(subsystems.find(subsystem_of(count)), std::string::npos) << subsystems;
        EXPECT_EQ(ending.files.size(), 15u);  // 14 reports and the folder of the modules
    }
}

TEST(Phases, CallsOfAllKindsGoOnBesideRealEvents) {
    const char* const seconds = std::getenv("KTL_MEM_STORM_SECONDS");
    const ENDING ending = run_host({"storm", seconds != nullptr ? seconds : "2"});
    EXPECT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_TRUE(ending.output.ends_with("1 1 1\n1\n")) << ending.output;
}

TEST(Phases, AForkedChildMayCallEverythingAndWritesNothing) {
    const ENDING ending = run_host({"forks", "100"});
    EXPECT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_TRUE(ending.output.ends_with("0 failed\n")) << ending.output;
}

TEST(Phases, AProcessMayEndInsideADump) {
    for (const char* const which : {"0", "1", "2", "3"})
        EXPECT_EQ(run_host({"exit_in_dump", which}).how(), "exit 5") << which;
}

}  // namespace
