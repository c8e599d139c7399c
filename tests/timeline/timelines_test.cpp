#include "mem/timeline/timeline.h"

#include <chrono>

#include "mem/base/gate.h"
#include "mem/timeline/module_timelines.h"
#include "mem/timeline/tag_timeline.h"
#include "tests/bins/bin_objects.h"

namespace {

using VALUES = std::vector<std::int64_t>;

// All values of a series, and one look past the end.
VALUES values_of(const MEM_RUN_SERIES<std::int64_t>& series) {
    VALUES values;
    MEM_RUN_CURSOR<std::int64_t> cursor(series);
    while (const std::int64_t* value = cursor.next()) values.push_back(*value);
    EXPECT_EQ(cursor.next(), nullptr);
    EXPECT_EQ(values.size(), series.total);
    return values;
}

TEST(Timeline, ASeriesIsRunsOfEqualValues) {
    // How late it begins, what is appended, the number of runs and all values, and the highest.
    const std::tuple<std::uint64_t, VALUES, std::size_t, VALUES, std::int64_t> cases[] = {
        {0, {}, 0, {}, 0},         {0, {5, 5, 5}, 1, {5, 5, 5}, 5}, {0, {1, 2, 1}, 3, {1, 2, 1}, 2},
        {2, {7}, 2, {0, 0, 7}, 7}, {2, {0, 7}, 2, {0, 0, 0, 7}, 7}, {0, {-3, -2, -9}, 3, {-3, -2, -9}, -2},
    };
    for (const auto& [late_by, appended, runs, values, highest] : cases) {
        MEM_TIMELINE series;
        series.fill_to(late_by);
        for (const std::int64_t value : appended) series.append(value);
        series.fill_to(values.size());
        EXPECT_EQ(series.runs.size(), runs);
        EXPECT_EQ(values_of(series), values);
        EXPECT_EQ(series.highest(), highest);
    }
}

TEST(ModuleTimelines, EveryModuleHasASeriesFromTheFirstSampleOn) {
    MEM_MODULE_TIMELINES timelines;
    const MODULES samples[] = {
        {{}},
        {{{"b", 10, 1}}},
        {{{"A", 5, 1}, {"b", 20, 2}}},
        {{{"A", 6, 2}}},               // b's entry went with a reset
        {{{"A", 6, 2}, {"b", 1, 1}}},  // and came back
        {{{"A", 6, 2}}},
    };
    for (const MODULES& modules : samples) timelines.sample(modules);
    timelines.read([](const auto& series, std::uint64_t num_samples) {
        EXPECT_EQ(num_samples, 6u);
        ASSERT_EQ(series.size(), 2u);
        EXPECT_EQ(values_of(series.find("a")->second.bytes), (VALUES{0, 0, 5, 6, 6, 6}));
        EXPECT_EQ(values_of(series.find("A")->second.blocks), (VALUES{0, 0, 1, 2, 2, 2}));
        EXPECT_EQ(values_of(series.find("b")->second.bytes), (VALUES{0, 10, 20, 0, 1}));
        EXPECT_EQ(values_of(series.find("b")->second.blocks), (VALUES{0, 1, 2, 0, 1}));
    });
}

TEST(ModuleTimelines, NamesAreOrderedAndFoundWithoutRegardToCase) {
    MEM_MODULE_TIMELINES timelines;
    const MODULES modules{{{"B", 1, 0}, {"a", 2, 0}, {"ab", 3, 0}, {"b", 4, 0}, {"\xC4", 5, 0}}};
    for (int i = 0; i < 2; ++i) timelines.sample(modules);
    timelines.read([](const auto& series, std::uint64_t) {
        std::string order;
        for (const auto& [name, module] : series) order += name + " ";
        EXPECT_EQ(order, "a ab B \xC4 ");
        EXPECT_EQ(values_of(series.find("b")->second.bytes), (VALUES{1, 4, 1, 4}));
    });
}

class TagTimeline : public BinObjects {
  protected:
    static void charge_tag(std::uint64_t bytes, std::uint32_t id) {
        const MEM_GATE_SCOPE inside(gate, MEM_MOUSE);
        add_bytes(*mem_tbb_tag_table, bytes, id);
    }
    void sample_alone() {
        const MEM_GATE_SCOPE alone(gate, MEM_CAT);
        timeline.sample();
    }

    static inline MEM_CATS_AND_MICE gate;
    MEM_TAG_TIMELINE timeline{*mem_tbb_tag_table};
};

TEST_F(TagTimeline, TagsJoinLateAndBinsOutliveAReset) {
    timeline.sample();
    open("X", "T");
    charge_bin_and_tag(0x1000, 30);
    timeline.sample();
    open("passing", "");
    close("");
    discharge_bin_and_tag(0x1000, 30);
    timeline.sample();
    timeline.read([](const MEM_TAG_SERIES& series) {
        EXPECT_EQ(series.num_samples, 3u);
        EXPECT_EQ(values_of(series.tag_series.at(0)), (VALUES{0, 0, 0}));
        EXPECT_EQ(values_of(series.tag_series.at(1)), (VALUES{0, 30, 0}));
    });
    timeline.reset();
    EXPECT_EQ(mem_tbb_tag_table->size(), 0u);
    charge_bin_and_tag(0x2000, 4);
    timeline.sample();
    timeline.read([](const MEM_TAG_SERIES& series) {
        EXPECT_EQ(series.num_samples, 1u);
        EXPECT_EQ(values_of(series.tag_series.at(1)), (VALUES{4}));
        ASSERT_EQ(series.bin_series.runs.size(), 2u);
        EXPECT_EQ(series.bin_series.runs[1].count, 3u);
    });
}

using TagTimelineDeathTest = TagTimeline;

TEST_F(TagTimelineDeathTest, OnlyTheSamplerMindsTheNumberOfBins) {
    MEM_PROFILE_BIN_STACK& bins = mem_get_profile_bins().bins;
    for (int id = 1; id <= 65535; ++id) bins.push_name(std::to_string(id));
    timeline.sample();
    bins.push_name("one more");
    EXPECT_DEATH(timeline.sample(),
                 "current_pbin_id <= std::numeric_limits<PB_ID>::max\\(\\).*MEM.*mem/mem_tbb_tracker");
}

// A sampler that finds the rows gone and the series still there ends the process with
// "new_num_tags >= old_num_tags". The tag that comes seldom keeps the rows few after a reset. With events
// that only add, a row that is at rest and was never cut in half has the same bytes now and ever.
TEST_F(TagTimeline, ResetsExcludeSamplersAndEvents) {
    const MEM_PROFILE_BIN_TABLE& tags = *mem_tbb_tag_table;
    std::atomic<std::uint32_t> events{0};
    const Meanwhile allocating(2, [&] { charge_tag(1, ++events % 5000 == 0 ? 50 : 0); });
    const Meanwhile sampling(1, [this] {
        sample_alone();
        std::this_thread::sleep_for(std::chrono::microseconds(50));  // cats go ahead of mice
    });
    for (int i = 0; i < 300; ++i) {
        while (tags.row(0).tally.peek_at_current_bytes() < 20) std::this_thread::yield();
        {
            const MEM_GATE_SCOPE alone(gate, MEM_CAT);
            timeline.reset();
        }
        const MEM_GATE_SCOPE alone(gate, MEM_CAT);
        for (std::uint32_t id = 0; id < tags.size(); ++id)
            ASSERT_EQ(tags.row(id).tally.read().current_bytes, tags.row(id).tally.read().cumulative_bytes);
    }
}

// One thread adds to two tags in turn, so that the first is ahead by one or not at all at every moment.
TEST_F(TagTimeline, ASampleIsOneMomentForAllTags) {
    add_bytes(*mem_tbb_tag_table, 0, 300);
    {
        const Meanwhile events(1, [] {
            charge_tag(1, 0);
            charge_tag(1, 300);
        });
        for (int i = 0; i < 1000; ++i) sample_alone();
    }
    timeline.read([](const MEM_TAG_SERIES& series) {
        const VALUES first = values_of(series.tag_series.at(0));
        const VALUES second = values_of(series.tag_series.at(300));
        for (std::size_t i = 0; i < first.size(); ++i) ASSERT_EQ((first[i] - second[i]) & ~1, 0);
    });
}

}  // namespace
