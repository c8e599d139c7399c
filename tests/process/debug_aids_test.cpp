// The debugging aids and the registry's listing in real processes, with the real allocator.
#include <regex>
#include <set>

#include "tests/process/child_process.h"

// What is shown of blocks of 112 bytes: one is given out again for 100 bytes, so that what stood behind byte
// 99 is a guard, and is freed between its two neighbours; the allocator keeps its list of free blocks in
// their first words. Then of calloc, and of realloc to another place and in place.
const std::string use_blocks =
    "tracked_host script malloc a 112 malloc b 112 malloc c 112 fill a 112 11 fill b 112 77 fill c 112 33 "
    "free b malloc d 100 distance b d bytes d 0 100 bytes d 100 112 "
    "free d bytes d 16 112 distance a d bytes a 0 112 distance d c bytes c 0 112 calloc e 100 bytes e 0 100 "
    "malloc f 100 fill f 100 22 realloc g f 5000 bytes g 0 100 "
    "malloc h 100 fill h 100 44 realloc i h 104 distance h i bytes i 0 100";
const std::string new_filled = "0 ab 77 mixed 112 11 112 33 ab 22 0 ab ";
const std::string freed_filled = "0 mixed cd cd 112 11 112 33 00 22 0 cd ";

// Patterns reach what the allocator shows its hooks: it calls them after the zeros of calloc, and for both
// ends of a realloc in place; a moving realloc copies after the fill. Bad settings, and a
// log that cannot be opened, cost a debug line.
const CASE aids[] = {
    {use_blocks, "mem_alloc_pattern_hex=AB", new_filled},
    {use_blocks, "mem_alloc_pattern=427", new_filled},
    {use_blocks, "mem_alloc_pattern=1 mem_alloc_pattern_hex=AB", new_filled},
    {use_blocks, "mem_free_pattern=205", freed_filled},
    {use_blocks, "mem_alloc_pattern=", "0 mixed 77 77 112 11 112 33 00 22 0 44 "},
    {use_blocks, "debug_msg=on mem_alloc_pattern=seven mem_free_pattern=99999999999",
     ".*\"seven\" of mem_alloc_pattern.*\"99999999999\" of mem_free_pattern.*0 mixed 77 77.*"},
    {"tracked_host switch", "", "spoiled 0\n"},
    // With chunks off every request is a plain allocation, which stays until it is deleted.
    {"tracked_host script chunk a 100 free_chunks bytes a 0 100 delete_chunk a bytes a 16 100",
     "mem_utils_no_chunk_allocation=on mem_free_pattern_hex=CD", "00 cd "},
    {"sh -c 'mkdir mem_allocations.log; exec tracked_host script'", "debug_msg=on mem_print_allocations=on",
     ".*mem_allocations.log.*"},
    // The listing comes at exit when messages were on at the start.
    {"tracked_host script pgo solver 'night run' pgo mesh 'night run' pgo solver 'night run' json "
     "setenv debug_msg off",
     "debug_msg=on",
     "Debug: PGO: The code module mesh was last compiled using PGO for:night run\n"
     "Debug: PGO: The code module solver was last compiled using PGO for:night run\n\\{.*"},
    {"tracked_host script pgo solver run setenv debug_msg on"},
    {"tracked_host script", "debug_msg=on", "[^P]*"},
};

TEST(DebugAids, ShowWhatTheyAreFor) {
    for (const CASE& aid : aids) expect(aid);
}

TEST(DebugAids, WorkBesideTheTracker) {
    const ENDING ending = expect(
        {use_blocks, track_all + "mem_alloc_pattern_hex=AB mem_free_pattern_hex=CD mem_print_allocations=on",
         "0 ab cd cd [0-9]+ 11 [0-9]+ 33 ab 22 0 ab "});
    EXPECT_TRUE(ending.has_call_site("script.cpp"));
    EXPECT_THAT(ending.files.at("mem_allocations.log"), testing::HasSubstr("size=100, type=alloc\n"));
}

TEST(DebugAids, TheLogHasWholeLinesAndBalancesWithTheTracker) {
    const ENDING ending = expect({"tracked_host log", "", "blocks [1-9][0-9]*\n"});
    const std::string& log = ending.files.at("mem_allocations.log");
    const std::regex line("ptr=(0x[0-9a-f]+), size=([0-9]+), type=(alloc|free)\n");
    EXPECT_EQ(std::regex_replace(log, line, ""), "");
    long long blocks = 0;
    std::set<std::string> live;
    for (std::sregex_iterator event(log.begin(), log.end(), line), end; event != end; ++event) {
        const auto& [whole, address, size, type] =
            std::tuple(event->str(0), event->str(1), event->str(2), event->str(3));
        ASSERT_NE(size, "54321") << "an event of the forked child";
        blocks += type == "alloc" ? 1 : -1;
        ASSERT_TRUE(type == "alloc" ? live.insert(address).second : (live.erase(address), true)) << whole;
    }
    // The counters at which the threads meet may take one block of their own meanwhile: the log tells of it,
    // the figures leave it out.
    const long long of_program = std::stoll(ending.output.substr(ending.output.find(' ')));
    EXPECT_TRUE(blocks == of_program || blocks == of_program + 1)
        << blocks << " in the log, " << ending.output;
}
