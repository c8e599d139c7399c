#include "mem/tracker/events.h"

#include <thread>

#include "ktl_mem/running_reports.h"
#include "mem/base/turns.h"
#include "mem/tracker/event_numbers.h"
#include "tests/tracker/tracked_events.h"

namespace {

// Of all events until now; threads hold the rests of their batches.
std::uint64_t numbers_given() {
    std::uint64_t given = mem_tbb_event_counter.value;
    for (const MEM_HELD_EVENT_NUMBERS& held : mem_held_event_numbers) given -= held.left;
    return given;
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
        EXPECT_EQ(mem_tbb_total_bytes.read().current_bytes, in_total);
        release(0x1000, 700);
        EXPECT_EQ(mem_stats.current().bytes, 0);
        EXPECT_EQ(mem_tbb_total_bytes.read().current_bytes, 0);
        EXPECT_EQ(numbers_given(), before + 2);
    }
}

// As the hook of a host does that sees the event take memory for itself.
TEST_F(TrackedEvents, TellTheFiguresOfTheProcessFromTheirMiddle) {
    allocate_at<1>(0x1000, 700);
    {
        const MEM_IN_TRACKER_SCOPE inside;
        const MEM_TURN turn;
        MEM_TRACKING_FIGURES figures;
        EXPECT_TRUE(mem_get_tracking_figures(figures));
        EXPECT_EQ(figures.current_bytes, 700);
    }
    release(0x1000, 700);
}

TEST_F(TrackedEvents, OfShortThreadsMakeNoMoreSamplingPoints) {
    constexpr int threads = 300, events = 3, period = 100;
    mem_library_snapshot_period = period;
    const std::uint64_t before = numbers_given();
    int sampling_points = 0;
    for (int i = 0; i < threads; ++i)
        std::thread([&] {
            for (int n = 0; n < events; ++n) sampling_points += mem_take_event_number() ? 1 : 0;
        }).join();
    EXPECT_EQ(numbers_given(), before + threads * events);
    EXPECT_GE(sampling_points, threads * events / period);
    EXPECT_LE(sampling_points, threads * events / period + 1);
}

}  // namespace
