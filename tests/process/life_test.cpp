// Processes that fork, exec, load, unload and end while other threads allocate: none hangs, none crashes, and
// each leaves the reports that it should. For a long run: --gtest_repeat=100.
#include <gtest/gtest.h>

#include "tests/process/child_process.h"

namespace {

ENDING live(const std::vector<std::string>& turn, const std::string& tracked = "VELDRIN_MEM_PROFILE_ALL=1") {
    RUN run{.command = {LIFE_HOST},
            .environment = {tracked, "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1000"}};
    run.command.insert(run.command.end(), turn.begin(), turn.end());
    return run_program(run);
}

bool reports_name(const ENDING& ending, const std::string& text) {
    const auto report = ending.files.find("mem_tbb_fileline.vii.log");
    return report != ending.files.end() && report->second.find(text) != std::string::npos &&
           report->second.find("Time spent dumping") != std::string::npos;
}

TEST(ProcessLife, BothOrdersOfPreloadingWork) {
    const std::string library = KTL_MEM_LIBRARY;
    const std::string allocator = TCMALLOC_MINIMAL;
    for (const std::string& order : {allocator + " " + library, library + " " + allocator}) {
        const ENDING ending = run_program(
            {.command = {PLAIN_HOST}, .environment = {"LD_PRELOAD=" + order, "VELDRIN_MEM_PROFILE_ALL=1"}});
        EXPECT_EQ(ending.how(), "exit 0") << ending.error;
        EXPECT_TRUE(reports_name(ending, "life_plain_host.cpp\t6\t")) << order;
    }
}

TEST(ProcessLife, ForkedChildrenGoOnUntrackedAndWriteNothing) {
    for (const char* tracked : {"VELDRIN_MEM_PROFILE_ALL=1", "VELDRIN_MEM_CHECK_LEAKS_FAST=1"}) {
        const ENDING ending = live({"fork"}, tracked);
        EXPECT_EQ(ending.how(), "exit 0") << ending.error;
        EXPECT_TRUE(ending.output.ends_with("failed children: 0\n")) << ending.output;
        for (const auto& [name, text] : ending.files)
            EXPECT_EQ(name.find("child"), std::string::npos) << name;
    }
    EXPECT_TRUE(reports_name(live({"fork"}), "life_host.cpp"));
}

TEST(ProcessLife, AChildIsUntrackedFromItsFirstInstruction) {
    EXPECT_EQ(live({"early fork handler"}).output, "tracked in the child: 0\n");
}

TEST(ProcessLife, ExecStartsAnew) {
    const ENDING ending = live({"exec"});
    EXPECT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_TRUE(reports_name(ending, "allocate_at<103>()"));
    EXPECT_FALSE(reports_name(ending, "allocate_at<0>()"));
}

TEST(ProcessLife, ExitWithLiveThreads) {
    const ENDING by_main = live({"exit"});
    EXPECT_EQ(by_main.how(), "exit 5") << by_main.error;
    EXPECT_TRUE(reports_name(by_main, "allocate_at<0>()"));
    const ENDING by_another = live({"exit on a thread"});
    EXPECT_EQ(by_another.how(), "exit 6") << by_another.error;
    EXPECT_TRUE(reports_name(by_another, "Time spent dumping"));
}

TEST(ProcessLife, ExitInsideTheTrackerSkipsTheReportsAndSaysSo) {
    const ENDING ending = live({"exit inside"});
    EXPECT_EQ(ending.how(), "exit 7");
    EXPECT_EQ(ending.error,
              "ktl_mem: the process ends inside the memory tracker; its reports are not written\n");
    EXPECT_TRUE(ending.files.empty());
}

TEST(ProcessLife, AHostShutsDownBeforeTheEnd) {
    const ENDING ending = live({"shut down"});
    EXPECT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_TRUE(reports_name(ending, "Time spent dumping"));
}

TEST(ProcessLife, ErrnoIsKept) {
    EXPECT_EQ(live({"errno"}).output, "spoiled 0\n");
}

TEST(ProcessLife, AnAllocationIsNoPlaceToBeCancelled) {
    EXPECT_EQ(live({"cancel"}).output, "survived 4\n");
}

TEST(ProcessLife, AFailedAllocationIsNoEvent) {
    EXPECT_EQ(live({"null"}).output, "null 1 errno 1 blocks 0\n");
}

TEST(ProcessLife, TheLoaderMayWaitForAllocatingThreads) {
    const ENDING ending = live({"loader", LIFE_PLUGIN});
    EXPECT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_TRUE(reports_name(ending, "life_plugin_block"));
}

}  // namespace
