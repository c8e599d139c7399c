// Peaks, flushes and resets.
#include "mem/timeline/module_timelines.h"
#include "mem/timeline/tag_timeline.h"
#include "tests/tracker/tracked_events.h"

namespace {

constexpr std::int64_t mebibyte = 1 << 20;

std::vector<std::string> told_with(const std::string& begin) {
    std::vector<std::string> told;
    for (const std::string& message : messages)
        if (message.starts_with(begin)) told.push_back(message);
    return told;
}

TEST_F(TrackedEvents, PeaksAreRecordedByDoublingAndByTheGrid) {
    constexpr std::uint64_t usual = 128 * mebibyte;
    // A threshold, and frees: the total before each, and the next peak as the message shows it, 0 without
    // one.
    const std::pair<std::uint64_t, std::vector<std::pair<std::int64_t, std::int64_t>>> cases[] = {
        {usual, {{1023, 0}, {1024, 2048}, {2047, 0}, {2048, 4096}}},
        {usual, {{1000000, 2000000}, {1999999, 0}, {2000000, 4000000}}},
        {1000, {{1500, 2000}, {1999, 0}, {2000, 2000}, {2999, 0}, {3500, 4000}}},
        {usual,
         {{200 * mebibyte, 256 * mebibyte}, {256 * mebibyte - 1, 0}, {256 * mebibyte, 256 * mebibyte}}},
        {usual, {{5000, 10000}, {4000, 0}, {9999, 0}, {5000, 0}, {9999, 0}}},
        {100, {{99, 0}, {100, 100}, {150, 0}, {199, 0}, {200, 200}}},  // below the first target
    };
    for (const auto& [threshold, frees] : cases) {
        set_threshold(threshold);
        for (const auto& [total, next_shown] : frees) {
            SCOPED_TRACE(total);
            messages.clear();
            const std::uint64_t index = mem_tbb_timeline_index.read();
            allocate_at<1>(0x1000, total);
            release(0x1000, total);
            std::vector<std::string> expected;
            if (next_shown != 0) {
                expected.push_back("Memory tracking: recording peak bytes at " + std::to_string(total) +
                                   " bytes (timeline index " + std::to_string(index) +
                                   "), next peak at >= " + std::to_string(next_shown) + " bytes");
                EXPECT_EQ(mem_tbb_peak_search.recorded(), total);
                EXPECT_EQ(mem_tbb_peak_search.next_doubling(), 2 * total);
                EXPECT_EQ(peak_at(1), std::pair(total, 1));
                EXPECT_EQ(mem_tbb_tag_table->row(0).peak, total);
                EXPECT_EQ(mem_tbb_peak_timeline_index, index);
            }
            EXPECT_EQ(told_with("Memory tracking: recording"), expected);
            EXPECT_EQ(mem_tbb_timeline_index.read(), index + expected.size());  // a peak is a sampling point
        }
    }
}

TEST_F(TrackedEvents, TheReportsShowTheHighestPeakOfAllPhases) {
    // The peaks of two phases, and what the peak columns show of each at the end.
    const std::array<std::int64_t, 4> cases[] = {
        {5000000, 3000000, 5000000, 0}, {3000000, 5000000, 0, 5000000}, {4000000, 4000000, 4000000, 0}};
    for (const auto& [first, second, shown_first, shown_second] : cases) {
        SCOPED_TRACE(first);
        mem_reset_tracking_entries();
        mem_tbb_flushed_peak = 0;
        allocate_at<1>(0x1000, first);
        release(0x1000, first);
        messages.clear();
        mem_tbb_tracking_flush_peak();
        mem_tbb_tracking_flush_peak();  // finds nothing new, and keeps the snapshot
        const std::string reset = "Memory tracking: memory threshold peak was reset from ";
        EXPECT_EQ(told_with(reset), (std::vector{reset + std::to_string(first), reset + std::string("0")}));
        EXPECT_EQ(mem_tbb_flushed_peaks->size(), 1u);
        EXPECT_EQ(mem_tbb_peak_search.next_doubling(), 1024);
        EXPECT_EQ(peak_at(1), std::pair(first, 1));  // until the next peak

        allocate_at<2>(0x2000, second);
        release(0x2000, second);
        EXPECT_EQ(peak_at(1), std::pair(std::int64_t{0}, 0));
        mem_restore_flushed_peaks();
        EXPECT_EQ(peak_at(1), std::pair(shown_first, shown_first != 0 ? 1 : 0));
        EXPECT_EQ(peak_at(2), std::pair(shown_second, shown_second != 0 ? 1 : 0));
        const std::int64_t highest = std::max(first, second);
        EXPECT_EQ(mem_tbb_bin_table->row(0).peak, highest);
        EXPECT_EQ(mem_tbb_tag_table->row(0).peak, highest);
    }
}

TEST_F(TrackedEvents, AFlushWithoutAPeakKeepsNothing) {
    mem_tbb_tracking_flush_peak();
    EXPECT_EQ(mem_tbb_flushed_peaks, nullptr);
    EXPECT_EQ(mem_tbb_flushed_peak, 0);
}

TEST_F(TrackedEvents, WithTheFastLeakCheckAloneAFlushResetsThePeakOfTheProcess) {
    // A word, what is told, and the peak after it.
    const std::tuple<std::uint32_t, std::vector<std::string>, std::int64_t> cases[] = {
        {MEM_TRACKING_LEAKS_FAST, {"Memory tracking: memory peak was reset from 700"}, 0},
        {MEM_TRACKING_LEAKS_FAST | MEM_TRACKING_ALLOC_DEALLOC, {}, 700}};
    for (const auto& [word, told, peak_after] : cases) {
        mem_tracking_word = word;
        mem_stats_forget_peak_bytes();
        mem_tbb_flushed_peak = 0;
        allocate_at<1>(0x1000, 700);
        release(0x1000, 700);
        mem_tbb_tracking_flush_peak();
        EXPECT_EQ(told_with("Memory tracking"), told);
        EXPECT_EQ(mem_get_stats().peak.bytes, peak_after);
        EXPECT_EQ(mem_get_stats().peak.blocks, 1);
        mem_restore_flushed_peaks();
        EXPECT_EQ(mem_get_stats().peak.bytes, 700);
        messages.clear();
    }
}

TEST_F(TrackedEvents, AResetForgetsWhoHoldsWhat) {
    MEM_TALLY& root_bin = mem_tbb_bin_table->row(0).tally;
    allocate_at<1>(0x1000, 3000);
    allocate_at<1>(0x2000, 400);
    release(0x2000, 400);  // a peak at 3400
    const std::int64_t in_bin = root_bin.read().current_bytes;
    const std::uint64_t index = mem_tbb_timeline_index.read();
    const auto highest_blocks = mem_tbb_total_bytes.highest_blocks();
    MEMORY_TRACKER_BASE module;
    MEM_ADDRESS_TRACKER record;
    EXPECT_TRUE(mem_get_address_tracker(reinterpret_cast<void*>(0x1000), record));
    mem_reset_tracking_entries();

    EXPECT_FALSE(mem_get_address_tracker(reinterpret_cast<void*>(0x1000), record));
    EXPECT_FALSE(mem_get_module_tracker("OTHER", module));
    EXPECT_EQ(mem_tbb_total_bytes.read().current_bytes, 0);
    EXPECT_EQ(mem_tbb_total_bytes.highest_blocks(), highest_blocks) << "they cost something from now on";
    EXPECT_EQ(mem_tbb_peak_search.recorded(), 0);
    EXPECT_EQ(mem_tbb_timeline_index.read(), index);
    EXPECT_EQ(mem_tbb_tag_table->size(), 0u);

    release(0x1000, 3000);  // nobody's any more
    EXPECT_EQ(mem_tbb_total_bytes.read().current_bytes, -3000);
    EXPECT_TRUE(mem_get_address_tracker(nullptr, record));
    EXPECT_EQ(record.current_bytes, -3000);
    EXPECT_EQ(record.current_blocks, -1);
    EXPECT_TRUE(mem_get_module_tracker("OTHER", module));
    EXPECT_EQ(module.current_bytes, -3000);
    EXPECT_EQ(mem_tbb_tag_table->row(0).tally.read().current_bytes, -3000);
    EXPECT_EQ(root_bin.read().current_bytes, in_bin - 3000);  // bins are not reset

    allocate_at<1>(0x3000, 50);
    EXPECT_TRUE(mem_get_address_tracker(reinterpret_cast<void*>(0x3000), record));
    EXPECT_EQ(record.cumulative_bytes, 50);
}

}  // namespace
