#include "mem/base/tally.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

namespace {

// So many threads meet at home that the tally spreads. They take back what the caller charges first.
void crowd(MEM_TALLY& tally, int blocks) {
    for (int i = 0; i < blocks; ++i) tally.charge(0, 0);
    tally.hold();
    std::vector<std::thread> threads;
    for (int i = 0; i < blocks; ++i) threads.emplace_back([&] { tally.discharge(0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    tally.release();
    for (std::thread& thread : threads) thread.join();
}

// The counters of events that come one after the other.
struct Model {
    MEMORY_TRACKER_BASE now;
    std::vector<std::int64_t> live;
    std::mt19937 random{7};

    std::int64_t charge() {
        const std::int64_t size = 16 + random() % 256;
        live.push_back(size);
        ++now.cumulative_blocks;
        now.cumulative_bytes += size;
        now.cumulative_requested_bytes += size - 1;
        now.max_blocks = std::max(now.max_blocks, ++now.current_blocks);
        now.max_bytes = std::max(now.max_bytes, now.current_bytes += size);
        return size;
    }
    std::int64_t discharge() {
        std::swap(live[random() % live.size()], live.back());
        const std::int64_t size = live.back();
        live.pop_back();
        --now.current_blocks;
        now.current_bytes -= size;
        now.cumulative_mismatched_bytes += size;
        return size;
    }
};

void expect_equal(const MEMORY_TRACKER_BASE& a, const MEMORY_TRACKER_BASE& b) {
    ASSERT_EQ(a.current_blocks, b.current_blocks);
    ASSERT_EQ(a.current_bytes, b.current_bytes);
    ASSERT_EQ(a.max_blocks, b.max_blocks);
    ASSERT_EQ(a.max_bytes, b.max_bytes);
    ASSERT_EQ(a.cumulative_blocks, b.cumulative_blocks);
    ASSERT_EQ(a.cumulative_bytes, b.cumulative_bytes);
    ASSERT_EQ(a.cumulative_requested_bytes, b.cumulative_requested_bytes);
    ASSERT_EQ(a.cumulative_mismatched_bytes, b.cumulative_mismatched_bytes);
}

// Events of one thread in a row: enough charges to be worth a settlement.
constexpr int batch = 90;

class Tally : public testing::Test {
  protected:
    // Batches of events, of which `charges` in ten are charges. Threads take the shares of a tally in turn,
    // so these three have one each, and use it turn about.
    void run(int batches, unsigned charges) {
        std::atomic<int> turn{0};
        std::vector<std::thread> threads;
        for (int me = 0; me < 3; ++me)
            threads.emplace_back([&, me] {
                for (int mine = me; mine < batches; mine += 3) {
                    while (turn != mine) std::this_thread::yield();
                    for (int i = 0; i < batch; ++i)
                        run_one(model.live.empty() || model.random() % 10 < charges);
                    ++turn;
                }
            });
        for (std::thread& thread : threads) thread.join();
    }
    void run_one(bool is_charge) {
        if (is_charge) {
            const auto size = static_cast<std::uint64_t>(model.charge());
            tally.charge(size - 1, size);
        } else {
            const auto size = static_cast<std::uint64_t>(model.discharge());
            tally.discharge(size, size);
        }
        expect_equal(tally.read(), model.now);
    }
    void crowd_in() {
        crowd(tally, 32);
        model.now.cumulative_blocks += 32;
        model.now.max_blocks = std::max(model.now.max_blocks, model.now.current_blocks + 32);
        expect_equal(tally.read(), model.now);
    }

    MEM_TALLY tally;
    Model model;
};

// Growth sends it home again, where it stays for a while; the rounds go through each of its states.
TEST_F(Tally, IsExactAfterEveryEventWhileItSpreadsAndGathers) {
    for (int round = 0; round < 4; ++round) {
        crowd_in();
        for (const unsigned charges : {5u, 3u, 6u, 9u, 3u}) run(10, charges);
    }
}

TEST_F(Tally, MaximaBeginAnewWhereverTheyArePut) {
    run(1, 9);
    crowd_in();
    run(1, 2);
    tally.set_highest_bytes(0);  // below the count, so that any charge raises it, and only that
    model.now.max_bytes = 0;
    for (const bool is_charge : {false, false, true}) run_one(is_charge);
    run(1, 5);

    const MEMORY_TRACKER_BASE before = tally.restart_highest();
    expect_equal(before, model.now);
    model.now.max_blocks = model.now.current_blocks;
    model.now.max_bytes = model.now.current_bytes;
    run(2, 6);

    tally.restart_highest(1 << 30);  // a floor that nothing reaches
    tally.ignore_highest_blocks();
    EXPECT_EQ(tally.highest_bytes(), 1 << 30);
    tally.clear();
    expect_equal(tally.read(), {});
}

TEST(TallyFigures, OfMoreBlocksThanARecordHoldsStayPositive) {
    const MEMORY_TRACKER_BASE record =
        MEM_TALLY_FIGURES{.current_blocks = 3'000'000'000, .max_blocks = -(1LL << 40)};
    EXPECT_EQ(record.current_blocks, 2'147'483'647);
    EXPECT_EQ(record.max_blocks, -2'147'483'648);
}

TEST_F(Tally, LosesNothingWhenThreadsMeet) {
    constexpr int threads = 8;
    constexpr int pairs = 30000;
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i)
        all.emplace_back([&] {
            for (int n = 0; n < pairs; ++n) {
                tally.charge(90, 100);
                // A burst now and then: more blocks at once than a share may hold.
                for (int k = n % 100 == 0 ? 50 : 0; k > 0; --k) tally.charge(0, 0);
                for (int k = n % 100 == 0 ? 50 : 0; k > 0; --k) tally.discharge(0);
                tally.discharge(100);
                if (n % 1000 == 0) tally.restart_highest();
            }
        });
    for (std::thread& thread : all) thread.join();
    const MEMORY_TRACKER_BASE now = tally.read();
    EXPECT_EQ(now.current_blocks, 0);
    EXPECT_EQ(now.current_bytes, 0);
    EXPECT_EQ(now.cumulative_bytes, std::int64_t{100} * threads * pairs);
    EXPECT_EQ(now.cumulative_blocks, std::int64_t{threads} * (pairs + 50 * (pairs / 100)));
    EXPECT_LE(now.max_bytes, 100 * threads);
    EXPECT_GE(now.max_bytes, 0);
}

}  // namespace
