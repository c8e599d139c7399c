// The debugging aids and the registry's listing in real processes, with the real allocator.
#include <gmock/gmock.h>

#include <regex>
#include <set>
#include <sstream>

#include "tests/process/child_process.h"

namespace {

using testing::HasSubstr;

ENDING end_of(std::vector<std::string> environment, std::vector<std::string> command) {
    ENDING ending = run_program({.command = std::move(command), .environment = std::move(environment)});
    EXPECT_EQ(ending.how(), "exit 0");
    return ending;
}

std::string run(std::vector<std::string> environment, const char* what) {
    return end_of(std::move(environment), {DEBUG_AIDS_HOST, what}).output;
}

TEST(DebugAids, PatternsShowUsesOfUninitialisedAndFreedMemory) {
    EXPECT_EQ(run({"mem_alloc_pattern_hex=AB"}, "uninitialised"), "same 1 new ab guard 77\n");
    EXPECT_EQ(run({"mem_alloc_pattern=427"}, "uninitialised"), "same 1 new ab guard 77\n");
    EXPECT_EQ(run({"mem_alloc_pattern=1", "mem_alloc_pattern_hex=AB"}, "uninitialised"),
              "same 1 new ab guard 77\n");
    EXPECT_EQ(run({"mem_free_pattern=205"}, "freed"), "freed cd neighbours 11 33 distance 112\n");
    EXPECT_EQ(run({"mem_alloc_pattern="}, "uninitialised").substr(0, 17), "same 1 new mixed ");
}

// As documented: the allocator calls its hooks after the zeros of calloc, and for both ends of a realloc in
// place; a moving realloc copies after the fill.
TEST(DebugAids, PatternsReachWhatTheAllocatorShowsItsHooks) {
    EXPECT_EQ(run({"mem_alloc_pattern_hex=AB"}, "calloc"),
              "calloc ab moved 1 copied 11 in place 1 content ab\n");
    EXPECT_EQ(run({"mem_free_pattern_hex=CD"}, "calloc"),
              "calloc 00 moved 1 copied 11 in place 1 content cd\n");
}

TEST(DebugAids, SwitchUnderThreads) {
    EXPECT_EQ(run({}, "switch"), "spoiled 0\n");
}

TEST(DebugAids, WorkBesideTheTracker) {
    const ENDING ending = end_of({"mem_alloc_pattern_hex=AB", "mem_free_pattern_hex=CD",
                                  "mem_print_allocations=on", "VELDRIN_MEM_PROFILE_PER_FILELINE=1",
                                  "VELDRIN_MEM_PROFILE_PER_LIBRARY=1", "VELDRIN_MEM_CHECK_LEAKS=1"},
                                 {DEBUG_AIDS_HOST, "uninitialised"});
    EXPECT_EQ(ending.output, "same 1 new ab guard cd\n");
    std::string all;
    for (const auto& [name, text] : ending.files) all += text;
    EXPECT_THAT(all, HasSubstr("debug_aids_host.cpp")) << "no report names a line of the host";
    EXPECT_THAT(ending.files.at("mem_allocations.log"), HasSubstr("size=100, type=alloc\n"));
}

TEST(DebugAids, TheLogHasWholeLinesAndBalancesWithTheTracker) {
    const ENDING ending = end_of({}, {DEBUG_AIDS_HOST, "log"});
    const std::regex line_form("ptr=(0x[0-9a-f]+), size=[0-9]+, type=(alloc|free)");
    std::istringstream lines(ending.files.at("mem_allocations.log"));
    long long blocks = 0;
    int events = 0;
    std::set<std::string> live;
    for (std::string line; std::getline(lines, line); ++events) {
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, line_form)) << line;
        ASSERT_THAT(line, testing::Not(HasSubstr("54321"))) << "an event of the forked child";
        const bool is_alloc = parts[2] == "alloc";
        blocks += is_alloc ? 1 : -1;
        if (is_alloc)
            ASSERT_TRUE(live.insert(parts[1]).second) << line;
        else
            live.erase(parts[1]);
    }
    EXPECT_GE(events, 4 * 2 * 19'000);
    EXPECT_EQ("blocks " + std::to_string(blocks) + "\n", ending.output);
}

TEST(DebugAids, BadSettingsCostALineAndNothingElse) {
    const std::string bad =
        run({"debug_msg=on", "mem_alloc_pattern=seven", "mem_free_pattern=99999999999"}, "uninitialised");
    for (const char* part : {"mem_alloc_pattern", "seven", "mem_free_pattern", "99999999999", "new mixed"})
        EXPECT_THAT(bad, HasSubstr(part));
    const ENDING no_file =
        end_of({"debug_msg=on", "mem_print_allocations=on"},
               {"/bin/sh", "-c", "mkdir mem_allocations.log; exec " DEBUG_AIDS_HOST " freed"});
    EXPECT_THAT(no_file.output, HasSubstr("mem_allocations.log"));
}

TEST(DebugAids, ListsOptimisedModulesAtExitWhenMessagesWereOnAtStart) {
    const std::string line = "Debug: PGO: The code module ";
    const std::string middle = " was last compiled using PGO for:night run\n";
    EXPECT_THAT(run({"debug_msg=on"}, "pgo"), HasSubstr(line + "mesh" + middle + line + "solver" + middle));
    EXPECT_THAT(run({}, "pgo"), testing::Not(HasSubstr("PGO")));
    EXPECT_THAT(run({"debug_msg=on"}, "nothing"), testing::Not(HasSubstr("PGO")));
}

TEST(DebugAids, TheArenaCanBeSwitchedOff) {
    EXPECT_EQ(run({"mem_utils_no_chunk_allocation=on", "mem_free_pattern_hex=CD"}, "arena"),
              "chunks 0 bytes 00 deleted cd\n");
}

}  // namespace
