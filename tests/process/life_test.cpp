// Processes that fork, exec, load, unload and end while other threads allocate: none hangs, none crashes, and
// each leaves the reports that it should. For a long run: --gtest_repeat=100.
#include <regex>

#include "tests/process/child_process.h"

const std::string sampled = track_all + "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1000";

TEST(Life, LeavesItsReportsWhateverTurnItTakes) {
    // Each with a call site that its report has.
    const std::pair<CASE, const char*> lives[] = {
        {{"tracked_host exit", sampled, "", "exit 5"}, "allocate_at<0>()"},
        {{"tracked_host exit_on_a_thread", sampled, "", "exit 6"}, ""},
        {{"tracked_host shut_down", sampled}, ""},
        {{"tracked_host cancel", sampled, "survived 1 cancelled 1\n"}, "allocate_at<2063>()"},
        {{"tracked_host early_fork_handler", sampled, "untracked 1\n"}, "allocate_at<104>()"},
        {{"tracked_host small_stacks", sampled}, "allocate_at<3063>()"},
        // A program that knows nothing of the library, with both orders of preloading.
        {{"plain_host", track_all + "LD_PRELOAD=" TCMALLOC_MINIMAL ":" KTL_MEM}, "plain_host.cpp\t7\tmain"},
        {{"plain_host", track_all + "LD_PRELOAD=" KTL_MEM ":" TCMALLOC_MINIMAL}, "plain_host.cpp\t7\tmain"},
        // And by a loader that is called by its name, as by programs that bring their own.
        {{"/lib64/ld-linux-x86-64.so.2 " BUILT "/plain_host",
          track_all + "LD_PRELOAD=" TCMALLOC_MINIMAL ":" KTL_MEM},
         "plain_host.cpp\t7\tmain"},
    };
    for (const auto& [life, call_site] : lives)
        EXPECT_TRUE(expect(life).has_call_site(call_site)) << life.command;
}

// The library outranks the environment, and is found by its name when somebody else has loaded it.
TEST(Life, TakesItsKeysFromTheConfigurationLibrary) {
    const std::string settings = "debug_msg=on mem_profile_stack_trace_ignore_depth=6 ";
    const std::string preloaded = settings + "LD_PRELOAD=" TCMALLOC_MINIMAL ":" KTL_MEM;
    const std::string beside_it = preloaded + ":" BUILT "/libktl_cfg_ini.so";
    EXPECT_TRUE(expect({"plain_host", beside_it, "(.|\n)* to 4\n(.|\n)*"}).has_call_site("plain_host.cpp"));
    EXPECT_TRUE(expect({"plain_host", preloaded, "(.|\n)* to 6\n(.|\n)*"}).files.empty());
}

TEST(Life, EndsAsItWouldWithoutStandardStreamsAndWithFilesThatMayNotGrow) {
    const ENDING ending =
        expect({"sh -c 'ulimit -f 1; exec tracked_host exit <&- >&- 2>&-'", sampled, "", "exit 5"});
    EXPECT_EQ(ending.files.at("mem_tbb_fileline.vii.log").size(), 512U);
    EXPECT_EQ(ending.files.at("mem_tbb_fileline.vii.log").find("MEM: TBB Fileline"), 0U);
}

TEST(Life, EndsWellWhileAThreadOpensAndClosesBins) {
    for (int round = 0; round < 40; ++round)
        EXPECT_TRUE(expect({"tracked_host exit_with_bins", track_all, "", "exit 5"}).has_call_site("OTHER"));
}

TEST(Life, LeavesAllReportsWhenEightThreadsEndItAtOnce) {
    const ENDING model = run("tracked_host exit", track_all);
    for (int round = 0; round < 20; ++round)
        for (const std::string end : {"exit", "call"})
            run("tracked_host exit_on_eight_threads " + end, track_all).expect_reports_of(model);
}

TEST(Life, SwitchesBinsOnWhileTheLoaderWorks) {
    for (int round = 0; round < 10; ++round)
        expect({"tracked_host switch_while_loading " + module_path, "VELDRIN_MEM_PROFILE_PER_LIBRARY=1"});
}

TEST(Life, StartsAnewAfterAnExec) {
    const ENDING ending = expect({"tracked_host exec", sampled});
    EXPECT_TRUE(ending.has_call_site("script.cpp"));
    EXPECT_FALSE(ending.has_call_site("allocate_at<0>()"));
}

// Each of twenty times at a place of its own, or where it was before.
TEST(Life, ChargesAModuleThatComesAndGoes) {
    const ENDING ending = expect({"tracked_host load " + module_path, sampled});
    const std::string& report = ending.files.at("mem_tbb_fileline.vii.log");
    const std::regex row("\t([0-9]+)\tmodule\t[^\t]*module.cpp\t24\tmodule_block\n");
    int blocks = 0;
    for (std::sregex_iterator site(report.begin(), report.end(), row), end; site != end; ++site)
        blocks += std::stoi(site->str(1));
    EXPECT_EQ(blocks, 20);
}

TEST(Life, NamesWhatThreadsOfNewModulesDoWhileTheLoaderWorks) {
    for (int round = 0; round < 10; ++round)
        EXPECT_TRUE(
            expect({"tracked_host load_with_threads " + module_path, track_all}).has_call_site("\t95\t"));
}

TEST(Life, ThatEndsInsideTheTrackerLeavesNoReportsAndSaysSo) {
    const char* const said =
        "ktl_mem: the process ends inside the memory tracker; its reports are not written\n";
    EXPECT_TRUE(expect({"tracked_host exit_inside", sampled, "", "exit 7", said}).files.empty());
}

// Whichever line of whichever report is being written.
TEST(Life, MayEndInsideADump) {
    int writes = 0;
    while (run("tracked_host exit_in_dump " + std::to_string(writes + 1), sampled).how == "exit 8") ++writes;
    EXPECT_GT(writes, 4 * 4);
    expect({"tracked_host exit_in_dump 0", sampled});
}

TEST(Life, OfAForkedChildMayCallEverythingAndLeavesNothing) {
    for (const std::string& tracked : {track_all, std::string("VELDRIN_MEM_CHECK_LEAKS_FAST=1")}) {
        const ENDING ending = expect({"tracked_host forks 30", tracked, "failed 0\n"});
        for (const auto& [name, text] : ending.files)
            EXPECT_EQ(name.find("child"), std::string::npos) << name;
        EXPECT_EQ(ending.has_call_site("allocate_at<"), tracked == track_all);
    }
}

TEST(Life, BesideAnAllocatorWithAnEntryMissingIsUntracked) {
    const ENDING ending =
        expect({"plain_host", track_all + "LD_PRELOAD=" BUILT "/libtcmalloc_minimal.so:" KTL_MEM});
    EXPECT_TRUE(ending.has_call_site(""));
    EXPECT_FALSE(ending.has_call_site("plain_host"));
}
