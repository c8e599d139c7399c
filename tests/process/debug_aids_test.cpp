// The debugging aids and the registry's listing in real processes, with the real allocator.
#include <regex>
#include <set>
#include <sstream>

#include "tests/process/child_process.h"

// Patterns reach what the allocator shows its hooks: it calls them after the zeros of calloc, and for both
// ends of a realloc in place; a moving realloc copies after the fill. Bad settings, and a
// log that cannot be opened, cost a debug line.
const CASE aids[] = {
    {"tracked_host uninitialised", "mem_alloc_pattern_hex=AB", "same 1 new ab guard 77\n"},
    {"tracked_host uninitialised", "mem_alloc_pattern=427", "same 1 new ab guard 77\n"},
    {"tracked_host uninitialised", "mem_alloc_pattern=1 mem_alloc_pattern_hex=AB",
     "same 1 new ab guard 77\n"},
    {"tracked_host uninitialised", "mem_alloc_pattern=", "same 1 new mixed guard .*\n"},
    {"tracked_host uninitialised", "debug_msg=on mem_alloc_pattern=seven mem_free_pattern=99999999999",
     ".*\"seven\" of mem_alloc_pattern.*\"99999999999\" of mem_free_pattern.*new mixed.*"},
    {"tracked_host freed", "mem_free_pattern=205", "freed cd neighbours 11 33 distance 112\n"},
    {"tracked_host reallocated", "mem_alloc_pattern_hex=AB",
     "calloc ab moved 1 copied 11 in place 1 content ab\n"},
    {"tracked_host reallocated", "mem_free_pattern_hex=CD",
     "calloc 00 moved 1 copied 11 in place 1 content cd\n"},
    {"tracked_host switch", "", "spoiled 0\n"},
    {"tracked_host arena", "mem_utils_no_chunk_allocation=on mem_free_pattern_hex=CD",
     "chunks 0 bytes 00 deleted cd\n"},
    {"sh -c 'mkdir mem_allocations.log; exec tracked_host freed'", "debug_msg=on mem_print_allocations=on",
     ".*mem_allocations.log.*freed .*"},
    // The listing comes at exit when messages were on at the start.
    {"tracked_host pgo", "debug_msg=on",
     "Debug: PGO: The code module mesh was last compiled using PGO for:night run\n"
     "Debug: PGO: The code module solver was last compiled using PGO for:night run\n\\{.*"},
    {"tracked_host pgo", ""},
    {"tracked_host freed", "debug_msg=on", "freed [^P]*"},
};

TEST(DebugAids, ShowWhatTheyAreFor) {
    for (const CASE& aid : aids) expect(aid);
}

TEST(DebugAids, WorkBesideTheTracker) {
    const ENDING ending =
        expect({"tracked_host uninitialised",
                track_all + "mem_alloc_pattern_hex=AB mem_free_pattern_hex=CD mem_print_allocations=on",
                "same 1 new ab guard cd\n"});
    EXPECT_TRUE(ending.has_call_site("debug_aids.cpp"));
    EXPECT_THAT(ending.files.at("mem_allocations.log"), testing::HasSubstr("size=100, type=alloc\n"));
}

TEST(DebugAids, TheLogHasWholeLinesAndBalancesWithTheTracker) {
    const ENDING ending = expect({"tracked_host log", "", "blocks -?[0-9]+\n"});
    const std::regex line_form("ptr=(0x[0-9a-f]+), size=([0-9]+), type=(alloc|free)");
    std::istringstream lines(ending.files.at("mem_allocations.log"));
    long long blocks = 0;
    int events = 0;
    std::set<std::string> live;
    for (std::string line; std::getline(lines, line); ++events) {
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, line_form)) << line;
        ASSERT_NE(parts[2], "54321") << "an event of the forked child";
        const bool is_alloc = parts[3] == "alloc";
        blocks += is_alloc ? 1 : -1;
        ASSERT_TRUE(is_alloc ? live.insert(parts[1]).second : (live.erase(parts[1]), true)) << line;
    }
    EXPECT_GE(events, 4 * 2 * 19'000);
    EXPECT_EQ("blocks " + std::to_string(blocks) + "\n", ending.output);
}
