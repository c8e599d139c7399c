// The tracker at its edges: small processes, and what they must print. Blocks of 64, 1024 and 16 bytes are
// size classes of their own. Counters stand as blocks/bytes.
#include <gtest/gtest.h>

#include "tests/process/child_process.h"

namespace {

struct EDGE {
    const char* name;
    const char* variable;
    const char* output;
};

constexpr const char* every_event = "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1";

const EDGE edges[] = {
    {"modules", "MEM_PRINT_LIB_LOAD=0",
     "Loading: MEM\nLoading: ONE\nLoading: (null)\n3 modules\nUnloading: (null)\nUnloading: ONE\n"
     "still tracking: statistics 1/64\nUnloading: MEM\n"},
    {"late variable", "", "Unloading: ONE\nUnloading: MEM\n"},
    // Only the module whose name begins so leads the line past the callback; nine events have come by then.
    {"message module", every_event,
     "A MSG: told 1\nDebug: MEM: Memory tracking: at timeline index 8 with total memory 144\n"
     "MSGX: told 0\n"},
    {"switches", "",
     "no bit: statistics 0/0\none of two bits left: statistics 2/128\nno bit left: statistics 2/128\n"
     "12 of 8: 0, 0 of 8: 1\n"},
    {"guards", "", "after the inner: 0\nafter the outer: 1\noff before, on within: 0\n"},
    {"sampling points", every_event,
     "Debug: MEM: Memory tracking: at timeline index 0 with total memory 16\n"
     "Debug: MEM: Memory tracking: at timeline index 8 with total memory 144\n"
     "Debug: MEM: Memory tracking: at timeline index 16 with total memory 272\n"},
    {"single words", every_event, "word 64: statistics 0/0\nword 1: statistics 20/1280\ntold 0\n"},
    {"blocked thread", "",
     "blocked before: 0 1 1 0\nblocked: statistics 0/0\nblocked: none, untouched\n"
     "OTHER: live -1/-64 made 0/0 mismatched 0 peak 0\n"},
    {"notifications", "",
     "word 0: statistics 0/0\nmapped: live 1/4096 made 1/4096 mismatched 0 peak 0\n"
     "unmapped: none, untouched\nunmapped: statistics 0/0\n"
     "OTHER: live -1/-100 made 0/0 mismatched 0 peak 0\n"},
    {"queries", "",
     "OTHER: live 0/0 made 0/0 mismatched 0 peak 0\nedges_host: none\n"
     "block: live 1/1024 made 1/1024 mismatched 0 peak 0\n8 bytes into it: none, untouched\n"
     "edges_host: live 1/1024 made 1/1024 mismatched 0 peak 0\nEDGES_HOST: none\n"
     "freed: none, untouched\nedges_host: live 0/0 made 1/1024 mismatched 0 peak 0\n"
     "OTHER: live 0/0 made 0/0 mismatched 0 peak 0\nOTHER: none\n"
     "OTHER after a reset: live 0/0 made 0/0 mismatched 0 peak 0\n"},
    // 8128 + 8129 + 1 bytes, of which the first count. The peak is the first recorded one.
    {"mismatched", "", "the third: live 1/1 made 3/16258 mismatched 8128 peak 8128\n"},
    {"words 4 and 16", "",
     "word 4: live 0/0 made 0/0 mismatched 0 peak 0\n"
     "edges_host: live 1/1024 made 1/1024 mismatched 0 peak 0\n"
     "word 16: live 1/1024 made 2/2048 mismatched 0 peak 0\n"
     "value 8 came later: live 1/1024 made 3/3072 mismatched 1024 peak 2048\n"},
    {"overwritten", "",
     "new record: live 1/100 made 1/100 mismatched 0 peak 0\n"
     "old record: live 2/2048 made 2/2048 mismatched 0 peak 0\n"},
};

TEST(Edges, PrintWhatTheyMust) {
    for (const EDGE& edge : edges) {
        const ENDING ending =
            run_program({.command = {EDGES_HOST, edge.name}, .environment = {edge.variable}});
        EXPECT_EQ(ending.how(), "exit 0") << edge.name << ending.error;
        EXPECT_EQ(ending.output, edge.output) << edge.name;
    }
}

TEST(Edges, AnAllocatorWithAnEntryMissingIsLeftAlone) {
    const ENDING ending = run_program({.command = {PLAIN_HOST},
                                       .environment = {"LD_PRELOAD=" INCOMPLETE_ALLOCATOR " " KTL_MEM_LIBRARY,
                                                       "VELDRIN_MEM_PROFILE_ALL=1"}});
    EXPECT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_EQ(ending.output, "");
    EXPECT_EQ(ending.files.at("mem_tbb_fileline.vii.log").find("life_plain_host"), std::string::npos);
}

}  // namespace
