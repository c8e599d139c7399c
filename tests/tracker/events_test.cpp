#include "mem/tracker/event_numbers.h"
#include "tests/tracker/tracked_events.h"

namespace {

// Of all events until now; the thread holds the rest of its batch.
std::uint64_t numbers_given() {
    return mem_tbb_event_counter.value - mem_event_numbers_left;
}

TEST_F(TrackedEvents, HaveANumberAndMoveWhatTheWordNames) {
    // A word, and what a live block of 700 bytes adds to the statistics and to the total.
    const std::tuple<std::uint32_t, std::int64_t, std::int64_t> cases[] = {
        {MEM_TRACKING_NONE, 0, 0},
        {MEM_TRACKING_ALLOC_DEALLOC, 700, 0},
        {MEM_TRACKING_LEAKS_FAST, 700, 0},
        {MEM_TRACKING_ALLOC_DEALLOC | MEM_TRACKING_LEAKS_FAST, 700, 0},
        {MEM_TRACKING_AUXILIARY_TIMELINE, 0, 0},
        {MEM_TRACKING_LEAKS, 0, 0},
        {MEM_TRACKING_PER_FILELINE, 0, 700},
        {MEM_TRACKING_ALLOC_DEALLOC | MEM_TRACKING_PROFILE_BIN_TAGS, 700, 700},
    };
    for (const auto& [word, in_stats, in_total] : cases) {
        SCOPED_TRACE(word);
        mem_tracking_word = word;
        const std::uint64_t before = numbers_given();
        allocate_at<1>(0x1000, 700);
        EXPECT_EQ(mem_stats.current().bytes, in_stats);
        EXPECT_EQ(mem_tbb_total_bytes.current_bytes(), in_total);
        release(0x1000, 700);
        EXPECT_EQ(mem_stats.current().bytes, 0);
        EXPECT_EQ(mem_tbb_total_bytes.current_bytes(), 0);
        EXPECT_EQ(numbers_given(), before + 2);
    }
}

}  // namespace
