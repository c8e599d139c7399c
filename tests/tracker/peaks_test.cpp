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

struct FREE {
    std::int64_t total;       // before it
    std::int64_t next_shown;  // by the message; 0: no peak is recorded
};

struct PEAKS {
    const char* what;
    std::uint64_t threshold;
    std::vector<FREE> frees;
};

TEST_F(TrackedEvents, PeaksAreRecordedByDoublingAndByTheGrid) {
    constexpr std::uint64_t usual = 128 * mebibyte;
    const PEAKS cases[] = {
        {"first target", usual, {{1023, 0}, {1024, 2048}, {2047, 0}, {2048, 4096}}},
        {"doubling", usual, {{1000000, 2000000}, {1999999, 0}, {2000000, 4000000}}},
        {"grid", 1000, {{1500, 2000}, {1999, 0}, {2000, 2000}, {2999, 0}, {3500, 4000}}},
        {"large grid",
         usual,
         {{200 * mebibyte, 256 * mebibyte}, {256 * mebibyte - 1, 0}, {256 * mebibyte, 256 * mebibyte}}},
        {"up and down below the peak", usual, {{5000, 10000}, {4000, 0}, {9999, 0}, {5000, 0}, {9999, 0}}},
        {"a grid below the first target", 100, {{99, 0}, {100, 100}, {150, 0}, {199, 0}, {200, 200}}},
    };
    for (const PEAKS& peaks : cases) {
        set_threshold(peaks.threshold);
        for (const FREE& free : peaks.frees) {
            SCOPED_TRACE(std::string(peaks.what) + " at " + std::to_string(free.total));
            messages.clear();
            const std::uint64_t index = mem_tbb_timeline_index.read();
            allocate_at<1>(0x1000, free.total);
            release(0x1000, free.total);
            std::vector<std::string> expected;
            if (free.next_shown != 0) {
                expected.push_back("Memory tracking: recording peak bytes at " + std::to_string(free.total) +
                                   " bytes (timeline index " + std::to_string(index) +
                                   "), next peak at >= " + std::to_string(free.next_shown) + " bytes");
                EXPECT_EQ(mem_tbb_peak_search.recorded(), free.total);
                EXPECT_EQ(mem_tbb_peak_search.next(), 2 * free.total);
                EXPECT_EQ(peak_at(1), std::pair(free.total, 1));
                EXPECT_EQ(mem_tbb_tag_table->row(0).peak, free.total);
                EXPECT_EQ(mem_tbb_peak_timeline_index, index);
            }
            EXPECT_EQ(told_with("Memory tracking: recording"), expected);
            EXPECT_EQ(mem_tbb_timeline_index.read(), index + expected.size());  // a peak is a sampling point
        }
    }
}

struct PHASES {
    const char* what;
    std::int64_t first;
    std::int64_t second;
    std::int64_t shown_first;  // in the peak columns of the end
    std::int64_t shown_second;
};

TEST_F(TrackedEvents, TheReportsShowTheHighestPeakOfAllPhases) {
    const PHASES cases[] = {{"first higher", 5000000, 3000000, 5000000, 0},
                            {"second higher", 3000000, 5000000, 0, 5000000},
                            {"equal: the first", 4000000, 4000000, 4000000, 0}};
    for (const PHASES& phases : cases) {
        SCOPED_TRACE(phases.what);
        mem_reset_tracking_entries();
        mem_tbb_flushed_peak = 0;
        allocate_at<1>(0x1000, phases.first);
        release(0x1000, phases.first);
        messages.clear();
        mem_tbb_tracking_flush_peak();
        mem_tbb_tracking_flush_peak();  // finds nothing new, and keeps the snapshot
        const std::string reset = "Memory tracking: memory threshold peak was reset from ";
        EXPECT_EQ(told_with(reset),
                  (std::vector{reset + std::to_string(phases.first), reset + std::string("0")}));
        EXPECT_EQ(mem_tbb_flushed_peaks->size(), 1u);
        EXPECT_EQ(mem_tbb_peak_search.next(), 1024);
        EXPECT_EQ(peak_at(1), std::pair(phases.first, 1));  // until the next peak

        allocate_at<2>(0x2000, phases.second);
        release(0x2000, phases.second);
        EXPECT_EQ(peak_at(1), std::pair(std::int64_t{0}, 0));
        mem_restore_flushed_peaks();
        EXPECT_EQ(peak_at(1), std::pair(phases.shown_first, phases.shown_first != 0 ? 1 : 0));
        EXPECT_EQ(peak_at(2), std::pair(phases.shown_second, phases.shown_second != 0 ? 1 : 0));
        const std::int64_t highest = std::max(phases.first, phases.second);
        EXPECT_EQ(mem_tbb_bin_table->row(0).peak, highest);
        EXPECT_EQ(mem_tbb_tag_table->row(0).peak, highest);
    }
}

TEST_F(TrackedEvents, AFlushWithoutAPeakKeepsNothing) {
    mem_tbb_tracking_flush_peak();
    EXPECT_EQ(mem_tbb_flushed_peaks, nullptr);
    EXPECT_EQ(mem_tbb_flushed_peak, 0);
}

struct STATS_FLUSH {
    std::uint32_t word;
    std::vector<std::string> told;
    std::int64_t peak_after;
    std::int64_t peak_at_end;
};

TEST_F(TrackedEvents, WithTheFastLeakCheckAloneAFlushResetsThePeakOfTheProcess) {
    const STATS_FLUSH cases[] = {
        {MEM_TRACKING_LEAKS_FAST, {"Memory tracking: memory peak was reset from 700"}, 0, 700},
        {MEM_TRACKING_LEAKS_FAST | MEM_TRACKING_ALLOC_DEALLOC, {}, 700, 700}};
    for (const STATS_FLUSH& flush : cases) {
        mem_tracking_word = flush.word;
        mem_stats_forget_peak_bytes();
        mem_tbb_flushed_peak = 0;
        allocate_at<1>(0x1000, 700);
        release(0x1000, 700);
        mem_tbb_tracking_flush_peak();
        EXPECT_EQ(told_with("Memory tracking"), flush.told);
        EXPECT_EQ(mem_get_stats().peak.bytes, flush.peak_after);
        EXPECT_EQ(mem_get_stats().peak.blocks, 1);
        mem_restore_flushed_peaks();
        EXPECT_EQ(mem_get_stats().peak.bytes, flush.peak_at_end);
        messages.clear();
    }
}

TEST_F(TrackedEvents, AResetForgetsWhoHoldsWhat) {
    const MEM_TALLY& root_bin = mem_tbb_bin_table->row(0).tally;
    allocate_at<1>(0x1000, 3000);
    allocate_at<1>(0x2000, 400);
    release(0x2000, 400);  // a peak at 3400
    const std::int64_t in_bin = root_bin.current_bytes();
    const std::uint64_t index = mem_tbb_timeline_index.read();
    MEMORY_TRACKER_BASE module;
    MEM_ADDRESS_TRACKER record;
    EXPECT_TRUE(mem_get_address_tracker(reinterpret_cast<void*>(0x1000), record));
    mem_reset_tracking_entries();

    EXPECT_FALSE(mem_get_address_tracker(reinterpret_cast<void*>(0x1000), record));
    EXPECT_FALSE(mem_get_module_tracker("OTHER", module));
    EXPECT_EQ(mem_tbb_total_bytes.current_bytes(), 0);
    EXPECT_EQ(mem_tbb_peak_search.recorded(), 0);
    EXPECT_EQ(mem_tbb_timeline_index.read(), index);
    EXPECT_EQ(mem_tbb_tag_table->size(), 0u);

    release(0x1000, 3000);  // nobody's any more
    EXPECT_EQ(mem_tbb_total_bytes.current_bytes(), -3000);
    EXPECT_TRUE(mem_get_address_tracker(nullptr, record));
    EXPECT_EQ(record.current_bytes, -3000);
    EXPECT_EQ(record.current_blocks, -1);
    EXPECT_TRUE(mem_get_module_tracker("OTHER", module));
    EXPECT_EQ(module.current_bytes, -3000);
    EXPECT_EQ(mem_tbb_tag_table->row(0).tally.current_bytes(), -3000);
    EXPECT_EQ(root_bin.current_bytes(), in_bin - 3000);  // bins are not reset

    allocate_at<1>(0x3000, 50);
    EXPECT_TRUE(mem_get_address_tracker(reinterpret_cast<void*>(0x3000), record));
    EXPECT_EQ(record.cumulative_bytes, 50);
}

}  // namespace
