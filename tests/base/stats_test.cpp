#include "mem/base/stats.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

class Stats : public testing::Test {
  protected:
    void SetUp() override {
        mem_stats.tally.clear();
        mem_enter_local_region();
        mem_stats_forget_peak_bytes();
    }
    void TearDown() override { mem_stats.tally.clear(); }
};

TEST_F(Stats, RegionsNest) {
    mem_stats_add_block(100);
    const MEM_BASE_STATS outer = mem_enter_local_region();  // at 100
    mem_stats_add_block(20);
    mem_stats_add_block(3);
    mem_stats_remove_block(20);
    const MEM_BASE_STATS inner = mem_enter_local_region();  // at 103
    mem_stats_remove_block(100);
    EXPECT_EQ(mem_exit_local_region(inner).bytes, 103);
    EXPECT_EQ(mem_get_local_peak().bytes, 123) << "the inner region did not cut the outer one in two";
    const MEM_BASE_STATS whole = mem_exit_local_region(outer);
    EXPECT_EQ(whole.bytes, 123);
    EXPECT_EQ(whole.blocks, 3);
    EXPECT_EQ(mem_get_global_peak().bytes, 123);
    EXPECT_EQ(mem_get_global_current().bytes, 3);
}

TEST_F(Stats, ARegionDoesNotRaiseAPeakThatBeganAnew) {
    mem_stats_add_block(1000);
    mem_stats_forget_peak_bytes();
    EXPECT_EQ(mem_get_global_peak().bytes, 0);
    mem_enter_local_region();
    EXPECT_EQ(mem_get_global_peak().bytes, 0);
    EXPECT_EQ(mem_get_local_peak().bytes, 1000);
    mem_stats_remove_block(1000);
    mem_stats_add_block(32);
    EXPECT_EQ(mem_get_global_peak().bytes, 32);
}

TEST_F(Stats, RegionsThatEndAtOnceLoseNoPeak) {
    constexpr int rounds = 20'000;
    std::atomic<int> begun{0}, ended{0};
    std::thread other([&] {
        for (int round = 1; round <= rounds; ended = round++) {
            while (begun != round) std::this_thread::yield();
            mem_exit_local_region({500, 500});
        }
    });
    int lost = 0;
    for (int round = 1; round <= rounds; ++round) {
        mem_enter_local_region();
        begun = round;
        for (int i = 0; i < round % 100; ++i) __builtin_ia32_pause();
        mem_exit_local_region({1000, 1000});
        while (ended != round) std::this_thread::yield();
        const MEM_BASE_STATS kept = mem_get_local_peak();
        lost += kept.bytes != 1000 || kept.blocks != 1000 ? 1 : 0;
    }
    other.join();
    EXPECT_EQ(lost, 0);
}

}  // namespace
