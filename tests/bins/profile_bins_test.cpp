#include <cstdlib>
#include <new>
#include <sstream>

#include "bin_objects.h"
#include "mem/base/thread_state.h"

// As in a tracked process, an allocation of these tests can be an event: it asks for the bins on its thread.
static thread_local bool allocations_are_events = false;
static thread_local int allocations = 0;  // of this thread so far, but for those while it was blocked

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (!mem_thread_state.tracking_blocked) ++allocations;
    if (std::exchange(allocations_are_events, false)) {
        mem_get_profile_bins();
        allocations_are_events = true;
    }
    if (void* made = std::malloc(size)) return made;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* made) noexcept {
    std::free(made);
}
[[gnu::noinline]] void operator delete(void* made, std::size_t) noexcept {
    std::free(made);
}

namespace {

// Opens a bin for each word "name/tag", closes one for "-tag", and tells the state after each step.
std::string states_of(const char* script, auto state) {
    std::istringstream words(script);
    std::string states;
    std::uint64_t start = 0, end = 0, peak = 0;
    for (std::string word; words >> word; states += state() + ", ") {
        const std::size_t slash = word.find('/');
        word[0] == '-' ? mem_close_profile_bin(word.substr(1), &start, &end, &peak)
                       : mem_open_profile_bin(word.substr(0, slash), word.substr(slash + 1));
    }
    return states;
}

TEST_F(BinObjects, NamesFollowTheTagAndNotTheNesting) {
    const std::pair<const char*, const char*> cases[] = {
        {"X/ -", "Root::X Root, Root Root, "},
        {"X/T Y/ Y/U -U - -T", "T::X T, T::Y T, U::Y U, T::Y T, T::X T, Root Root, "},
        {"/T -T", "T:: T, Root Root, "},
        {"X/T -", "T::X T, Root T, "},  // a tag closed without its name stays
    };
    for (const auto& [script, states] : cases) EXPECT_EQ(states_of(script, bin_and_tag), states);
}

TEST_F(BinObjects, TheSameNameUnderTheSameTagIsTheSameBin) {
    const std::tuple<const char*, const char*, std::uint32_t> cases[] = {
        {"X", "T", 1}, {"X", "T", 1}, {"X", "", 1}, {"X", "U", 2}};
    for (const auto& [name, tag, id] : cases) {
        open(name, tag);
        EXPECT_EQ(mem_get_profile_bins().bins.get_curr_id(), id);
    }
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
    charge_bin_and_tag(0x5000, 100);
    open("Y", "U");
    charge_bin_and_tag(0x5000, 7);  // the address is taken: the first entry wins
    charge_bin_and_tag(0x6000, 50);
    charge_bin_and_tag(0x6010, 20);
    on_threads(1, [](int) {
        discharge_bin_and_tag(0x5000, 100);
        discharge_bin_and_tag(0x6000, 50);
        discharge_bin_and_tag(0x6000, 3);  // unknown by now: off "Root"
    });
    for (const MEM_PROFILE_BIN_TABLE* table : {mem_tbb_bin_table, mem_tbb_tag_table}) {
        ASSERT_EQ(table->size(), 3u);
        EXPECT_EQ(counters(*table, 0), (std::array<std::int64_t, 5>{-3, 0, 0, 0, 0}));
        EXPECT_EQ(counters(*table, 1), (std::array<std::int64_t, 5>{0, 100, 100, 0, 0}));
        EXPECT_EQ(counters(*table, 2), (std::array<std::int64_t, 5>{27, 77, 77, 0, 0}));
    }
}

TEST_F(BinObjects, AFreeAfterAClearGoesBelowZeroWithoutMemory) {
    open("X", "T");
    for (std::uint32_t i = 0; i < 200; ++i) add_bytes(*mem_tbb_tag_table, 8, i);
    charge_bin_and_tag(0x7000, 100);
    mem_tbb_tag_table->clear();
    EXPECT_EQ(mem_tbb_tag_table->size(), 0u);
    const int before = allocations;
    remove_bytes(*mem_tbb_tag_table, 8, 199);
    EXPECT_EQ(allocations, before);
    discharge_bin_and_tag(0x7000, 100);
    EXPECT_EQ(mem_tbb_tag_table->size(), 200u);
    EXPECT_EQ(counters(*mem_tbb_tag_table, 1), (std::array<std::int64_t, 5>{-100, 0, 0, 0, 0}));
    EXPECT_EQ(counters(*mem_tbb_tag_table, 199), (std::array<std::int64_t, 5>{-8, 0, 0, 0, 0}));
    EXPECT_EQ(counters(*mem_tbb_bin_table, 1), (std::array<std::int64_t, 5>{0, 100, 100, 0, 0}));
}

TEST_F(BinObjects, RowsStayWhereTheyAreWhileTheTableGrows) {
    MEM_PROFILE_BIN_TABLE& table = *mem_tbb_bin_table;
    std::vector<MEM_PROFILE_BIN*> rows;
    for (const std::uint32_t id : {0u, 63u, 64u, 127u, 128u, 70000u}) {
        add_bytes(table, id, id);
        rows.push_back(&table.row(id));
        EXPECT_EQ(table.size(), id + 1);
        for (MEM_PROFILE_BIN* row : rows)
            EXPECT_EQ(&table.row(static_cast<std::uint32_t>(row->tally.read().current_bytes)), row);
    }
}

TEST_F(BinObjects, ThreadsThatGrowTheTableAtOnceGetTheSameRows) {
    std::vector<MEM_PROFILE_BIN_TABLE> tables(500);
    StartingLine line(2);
    on_threads(2, [&](int) {
        for (MEM_PROFILE_BIN_TABLE& table : tables) {
            line.wait();
            add_bytes(table, 1, 64);
        }
    });
    for (const MEM_PROFILE_BIN_TABLE& table : tables) ASSERT_EQ(table.row(64).tally.read().current_bytes, 2);
}

TEST_F(BinObjects, BinsSetTheLabelWhileModulesAreTracked) {
    const std::tuple<bool, std::uint32_t, const char*, const char*> cases[] = {
        {false, MEM_TRACKING_PER_LIBRARY, "a/T b/ c/U -U - -T", "T, T, U, T, T, , "},
        {false, MEM_TRACKING_PER_LIBRARY, "a/T -V", "T, T, "},  // another tag removes nothing
        {false, MEM_TRACKING_PROFILE_BIN_TAGS, "a/W -W", "T, T, "},
        {true, MEM_TRACKING_PER_LIBRARY, "a/W -W", "T, T, "},
    };
    const auto label = [] {
        return std::string(MEM_TIMELINE_LABELS::READER(*mem_tbb_timeline_labels).next());
    };
    mem_tbb_bin_tags_enabled = false;
    for (const auto& [disabled, word, script, labels] : cases) {
        mem_tracking_word = word;
        if (disabled) mem_disable_profile_bin_tag_timeline_labels();
        EXPECT_EQ(states_of(script, label), labels);
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
