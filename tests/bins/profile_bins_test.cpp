#include "allocation_events.h"
#include "bin_objects.h"

namespace {

struct STEP {
    bool opens;
    const char* name;
    const char* tag;
    const char* expected;  // after the step
};

struct NESTING {
    const char* what;
    std::vector<STEP> steps;
    std::uint32_t word = MEM_TRACKING_ALL;
    bool labels_disabled = false;

    void expect(auto state) const {
        SCOPED_TRACE(what);
        std::uint64_t start = 0, end = 0, peak = 0;
        for (const STEP& step : steps) {
            step.opens ? mem_open_profile_bin(step.name, step.tag)
                       : mem_close_profile_bin(step.tag, &start, &end, &peak);
            EXPECT_EQ(state(), step.expected);
        }
    }
};

TEST_F(BinObjects, NamesFollowTheTagAndNotTheNesting) {
    const NESTING cases[] = {
        {"no tag", {{true, "X", "", "Root::X Root"}, {false, "", "", "Root Root"}}},
        {"tags in tags",
         {{true, "X", "T", "T::X T"},
          {true, "Y", "", "T::Y T"},
          {true, "Y", "U", "U::Y U"},
          {false, "", "U", "T::Y T"},
          {false, "", "", "T::X T"},
          {false, "", "T", "Root Root"}}},
        {"empty name", {{true, "", "T", "T:: T"}, {false, "", "T", "Root Root"}}},
        {"a tag closed without its name stays", {{true, "X", "T", "T::X T"}, {false, "", "", "Root T"}}},
    };
    for (const NESTING& nesting : cases) nesting.expect(bin_and_tag);
}

TEST_F(BinObjects, TheSameNameUnderTheSameTagIsTheSameBin) {
    open("X", "T");
    open("X", "T");
    EXPECT_EQ(mem_get_profile_bins().bins.get_curr_id(), 1u);
    open("X", "");
    EXPECT_EQ(mem_get_profile_bins().bins.get_curr_id(), 1u);
    open("X", "U");
    EXPECT_EQ(mem_get_profile_bins().bins.get_curr_id(), 2u);
    EXPECT_THROW(mem_get_profile_bins().bins.name_of(3), std::out_of_range);
}

TEST_F(BinObjects, APeakCoversTheBinsInsideAndNoOthers) {
    mem_stats_add_block(1000);
    open("outer", "T");
    mem_stats_add_block(500);
    mem_stats_remove_block(500);
    open("inner", "");
    mem_stats_add_block(300);
    EXPECT_EQ(close(""), (std::array<std::uint64_t, 3>{1000, 1300, 1300}));
    open("second", "");
    mem_stats_remove_block(300);
    EXPECT_EQ(close(""), (std::array<std::uint64_t, 3>{1300, 1000, 1300}));
    EXPECT_EQ(close("T"), (std::array<std::uint64_t, 3>{1000, 1000, 1500}));
    EXPECT_EQ(mem_get_local_peak().bytes, 1500);
}

TEST_F(BinObjects, EachSwitchWorksByItself) {
    mem_tbb_memory_tracking_enabled = false;
    mem_stats_add_block(7);
    open("X", "T");
    EXPECT_EQ(bin_and_tag(), "T::X T");
    EXPECT_EQ(close("T"), (std::array<std::uint64_t, 3>{0, 0, 0}));
    EXPECT_EQ(bin_and_tag(), "Root Root");

    mem_tbb_memory_tracking_enabled = true;
    mem_tbb_bin_tags_enabled = false;
    open("X", "T");
    EXPECT_EQ(bin_and_tag(), "Root Root");
    EXPECT_EQ(close("T"), (std::array<std::uint64_t, 3>{7, 7, 7}));
}

using BinObjectsDeathTest = BinObjects;

TEST_F(BinObjectsDeathTest, BrokenNestingEndsTheProcess) {
    const std::string source = ".*MEM.*mem/mem_tbb_tracker_profile_bins";
    EXPECT_DEATH(close(""), "!stack.empty\\(\\)" + source);
    EXPECT_DEATH((open("X", "T"), close("U")), "name == get_curr_name\\(\\)" + source);
    EXPECT_DEATH((mem_tbb_memory_tracking_enabled = false, close("")), "!m_pb_id_stack.empty\\(\\)" + source);
}

TEST_F(BinObjects, FirstUseMakesOneObject) {
    std::array<MEM_PROFILE_BINS*, 2> seen{};
    StartingLine line(2);
    on_threads(2, [&](int thread) {
        for (int round = 0; round < 500; ++round) {
            line.wait();
            seen[thread] = &mem_get_profile_bins();
            line.wait();
            EXPECT_EQ(seen[0], seen[1]);
            line.wait();
            if (thread == 0) delete mem_tbb_profile_bins.exchange(nullptr);
        }
    });
    allocations_are_events = true;
    MEM_PROFILE_BINS* made = &mem_get_profile_bins();
    allocations_are_events = false;
    EXPECT_EQ(made, mem_tbb_profile_bins.load());
}

TEST_F(BinObjects, NamesAreReadWhileOthersAreMade) {
    MEM_PROFILE_BIN_STACK& bins = mem_get_profile_bins().bins;
    {
        const Meanwhile reader(1, [&] { ASSERT_EQ(bins.name_of(bins.get_curr_id()).front(), 'R'); });
        for (int i = 0; i < 70000; ++i) bins.push_name("R" + std::to_string(i));
    }
    EXPECT_EQ(bins.name_of(70000), "R69999");
}

TEST_F(BinObjects, ABlockComesOffTheBinThatItWasChargedTo) {
    open("X", "T");
    mem_charge_bin_and_tag(0x5000, 100);
    open("Y", "U");
    mem_charge_bin_and_tag(0x5000, 7);  // the address is taken: the first entry wins
    mem_charge_bin_and_tag(0x6000, 50);
    mem_charge_bin_and_tag(0x6010, 20);
    on_threads(1, [](int) {
        mem_discharge_bin_and_tag(0x5000, 100);
        mem_discharge_bin_and_tag(0x6000, 50);
        mem_discharge_bin_and_tag(0x6000, 3);  // unknown by now: off "Root"
    });
    for (const MEM_PROFILE_BIN_TABLE* table : {mem_tbb_bin_table, mem_tbb_tag_table}) {
        ASSERT_EQ(table->size(), 3u);
        EXPECT_EQ(counters(*table, 0), (std::array<std::int64_t, 5>{-3, 0, 0, 0, 0}));
        EXPECT_EQ(counters(*table, 1), (std::array<std::int64_t, 5>{0, 100, 100, 0, 0}));
        EXPECT_EQ(counters(*table, 2), (std::array<std::int64_t, 5>{27, 77, 77, 0, 0}));
    }
}

TEST_F(BinObjects, PeaksAreTakenFlushedAndRestored) {
    MEM_PROFILE_BIN_TABLE& table = *mem_tbb_bin_table;
    table.add_bytes(10, 2);
    EXPECT_EQ(counters(table, 1), (std::array<std::int64_t, 5>{}));
    table.take_peak();
    table.flush_peak();
    table.remove_bytes(4, 2);
    table.take_peak();
    EXPECT_EQ(counters(table, 2), (std::array<std::int64_t, 5>{6, 10, 10, 6, 10}));
    table.restore_peak();
    EXPECT_EQ(counters(table, 2), (std::array<std::int64_t, 5>{6, 10, 10, 10, 10}));
}

TEST_F(BinObjects, AFreeAfterAClearGoesBelowZeroWithoutMemory) {
    open("X", "T");
    for (std::uint32_t i = 0; i < 200; ++i) mem_tbb_tag_table->add_bytes(8, i);
    mem_charge_bin_and_tag(0x7000, 100);
    mem_tbb_tag_table->clear();
    EXPECT_EQ(mem_tbb_tag_table->size(), 0u);
    const int before = allocations;
    mem_tbb_tag_table->remove_bytes(8, 199);
    EXPECT_EQ(allocations, before);
    mem_discharge_bin_and_tag(0x7000, 100);
    EXPECT_EQ(mem_tbb_tag_table->size(), 200u);
    EXPECT_EQ(counters(*mem_tbb_tag_table, 1), (std::array<std::int64_t, 5>{-100, 0, 0, 0, 0}));
    EXPECT_EQ(counters(*mem_tbb_tag_table, 199), (std::array<std::int64_t, 5>{-8, 0, 0, 0, 0}));
    EXPECT_EQ(counters(*mem_tbb_bin_table, 1), (std::array<std::int64_t, 5>{0, 100, 100, 0, 0}));
}

TEST_F(BinObjects, RowsStayWhereTheyAreWhileTheTableGrows) {
    MEM_PROFILE_BIN_TABLE& table = *mem_tbb_bin_table;
    table.add_bytes(1, 0);
    const MEM_PROFILE_BIN* first = &table.row(0);
    for (const std::uint32_t id : {63u, 64u, 127u, 128u, 70000u}) table.add_bytes(id, id);
    EXPECT_EQ(&table.row(0), first);
    EXPECT_EQ(table.size(), 70001u);
    for (const std::uint32_t id : {63u, 64u, 127u, 128u, 70000u})
        EXPECT_EQ(table.row(id).tally.current_bytes(), id);
}

TEST_F(BinObjects, ThreadsThatGrowTheTableAtOnceGetTheSameRows) {
    std::vector<MEM_PROFILE_BIN_TABLE> tables(500);
    StartingLine line(2);
    on_threads(2, [&](int) {
        for (MEM_PROFILE_BIN_TABLE& table : tables) {
            line.wait();
            table.add_bytes(1, 64);
        }
    });
    for (const MEM_PROFILE_BIN_TABLE& table : tables) ASSERT_EQ(table.row(64).tally.current_bytes(), 2);
}

TEST_F(BinObjects, ClearExcludesEvents) {
    MEM_PROFILE_BIN_TABLE& table = *mem_tbb_bin_table;
    const Meanwhile events(2, [&] { table.add_bytes(1, 0); });
    for (int i = 0; i < 3000; ++i) {
        await_events(table);
        table.clear();
        expect_whole_events(table);
    }
}

TEST_F(BinObjects, BinsSetTheLabelWhileModulesAreTracked) {
    const NESTING cases[] = {
        {"nested",
         {{true, "a", "T", "T"},
          {true, "b", "", "T"},
          {true, "c", "U", "U"},
          {false, "", "U", "T"},
          {false, "", "", "T"},
          {false, "", "T", ""}},
         MEM_TRACKING_PER_LIBRARY},
        {"another tag removes nothing",
         {{true, "a", "T", "T"}, {false, "", "V", "T"}},
         MEM_TRACKING_PER_LIBRARY},
        {"no modules", {{true, "a", "W", "T"}, {false, "", "W", "T"}}, MEM_TRACKING_PROFILE_BIN_TAGS},
        {"disabled", {{true, "a", "W", "T"}, {false, "", "W", "T"}}, MEM_TRACKING_PER_LIBRARY, true},
    };
    mem_tbb_bin_tags_enabled = false;
    for (const NESTING& labels : cases) {
        mem_tracking_word = labels.word;
        if (labels.labels_disabled) mem_disable_profile_bin_tag_timeline_labels();
        labels.expect([] { return MEM_TIMELINE_LABELS::READER(*mem_tbb_timeline_labels).next(); });
    }
}

TEST_F(BinObjects, ALabelIsReadWhenASampleIsTaken) {
    mem_tbb_timeline_labels->sample();
    mem_set_timeline_label("replaced");
    mem_set_timeline_label("b");
    mem_tbb_timeline_labels->sample();
    mem_set_timeline_label("b");
    mem_tbb_timeline_labels->sample();
    const std::string in_force(100000, 'x');
    const int before = allocations;
    mem_set_timeline_label(in_force);
    EXPECT_EQ(allocations, before);  // none that would be an event
    mem_tbb_timeline_labels->sample();
    MEM_TIMELINE_LABELS::READER reader(*mem_tbb_timeline_labels);
    for (const std::string& label : {std::string(), std::string("b"), std::string("b"), in_force, in_force})
        EXPECT_EQ(reader.next(), label);
}

}  // namespace
