#include "mem/timeline/resident_parts.h"

#include <gtest/gtest.h>

namespace {

std::int64_t sum_of(const MEM_RESIDENT_PARTS& p) {
    return p.blocks + p.rounding + p.unknown_blocks + p.tracker_blocks + p.kept_by_threads +
           p.kept_in_between + p.kept_free + p.allocator_tables + p.never_touched + p.tracker_mappings +
           p.stacks + p.code + p.module_data + p.files + p.shared_memory + p.anonymous + p.unexplained;
}

struct CASE {
    const char* name;
    MEM_TRACKED_BLOCKS tracked;
    MEM_RESIDENT_MAPPINGS mappings;
    std::int64_t resident;
    std::int64_t blocks, unknown_blocks, never_touched, tracker_mappings, anonymous, unexplained;
};

// The allocator says: 1000 in use, 10 + 20 + 30 kept, 5 for itself; so 1065 in all.
TEST(ResidentParts, AddUpWhateverIsKnown) {
    const MEM_ALLOCATOR_FIGURES allocator = {1000, 10, 20, 30, 400, 5};
    const CASE cases[] = {
        {"all is there", {800, 100, 150, 7}, {1065, 1, 2, 3, 4, 5, 6, 50}, 1136, 700, 50, 0, 13, 43, 0},
        {"a part was never touched",
         {800, 100, 150, 0},
         {565, 0, 0, 0, 0, 0, 0, 0},
         565,
         700,
         50,
         -500,
         0,
         0,
         0},
        {"the heap holds more than the allocator says",
         {1000, 0, 0, 0},
         {1100, 0, 0, 0, 0, 0, 0, 0},
         1100,
         1000,
         0,
         0,
         0,
         0,
         35},
        {"more was mapped for the tracker than is there",
         {0, 0, 0, 70},
         {1065, 0, 0, 0, 0, 0, 0, 50},
         1115,
         0,
         1000,
         0,
         50,
         0,
         0},
        {"tracking knows less than nothing",
         {-40, 9, 0, 0},
         {1065, 0, 0, 0, 0, 0, 0, 0},
         1075,
         -40,
         1040,
         0,
         0,
         0,
         10},
    };
    for (const CASE& c : cases) {
        SCOPED_TRACE(c.name);
        const MEM_RESIDENT_PARTS parts =
            mem_make_resident_parts(c.resident, c.tracked, allocator, c.mappings);
        EXPECT_EQ(sum_of(parts), c.resident);
        EXPECT_EQ(parts.blocks, c.blocks);
        EXPECT_EQ(parts.unknown_blocks, c.unknown_blocks);
        EXPECT_EQ(parts.never_touched, c.never_touched);
        EXPECT_EQ(parts.tracker_mappings, c.tracker_mappings);
        EXPECT_EQ(parts.anonymous, c.anonymous);
        EXPECT_EQ(parts.unexplained, c.unexplained);
        EXPECT_EQ(parts.given_back, 400);
    }
}

}  // namespace
