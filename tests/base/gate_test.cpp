#include "mem/base/gate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>

#include "tests/bins/on_threads.h"

namespace {

void expect_empty(const MEM_CATS_AND_MICE& gate) {
    EXPECT_EQ(gate.mice(), 0);
    EXPECT_EQ(gate.cats(), 0);
    EXPECT_EQ(gate.cats_approaching(), 0);
}

TEST(GateDeathTest, UnmatchedLeavesAreInternalErrors) {
    constexpr int nobody = 2;
    const std::tuple<int, int, const char*> cases[] = {{nobody, MEM_MOUSE, "mice >= 0.*908"},
                                                       {nobody, MEM_CAT, "cats == 0.*901"},
                                                       {MEM_MOUSE, MEM_CAT, "mice == 0.*900"},
                                                       {MEM_CAT, MEM_MOUSE, "cats == 0.*907"}};
    for (const auto& [entered, left, error] : cases) {
        MEM_CATS_AND_MICE gate;
        gate.enter(entered);
        EXPECT_DEATH(gate.leave(left), error);
        gate.leave(entered);
    }
}

// An announced cat stops new mice, and gets in when those inside have left.
TEST(Gate, AnnouncedCatStopsMice) {
    MEM_CATS_AND_MICE gate;
    std::atomic<bool> cat_left{false};
    gate.enter(MEM_MOUSE);
    EXPECT_EQ(gate.mice(), 1);
    std::thread cat([&] {
        gate.enter(MEM_CAT);
        EXPECT_EQ(gate.cats(), 1);
        cat_left = true;
        gate.leave(MEM_CAT);
    });
    while (gate.cats_approaching() == 0) std::this_thread::yield();
    std::thread mouse([&] {
        gate.enter(MEM_MOUSE);
        EXPECT_TRUE(cat_left) << "a mouse passed an announced cat";
        gate.leave(MEM_MOUSE);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(cat_left) << "the cat got in beside a mouse";
    gate.leave(MEM_MOUSE);
    cat.join();
    mouse.join();
    expect_empty(gate);
}

// Mice write their own cell of a plain array, cats all of them: without exclusion a sum is torn, and
// ThreadSanitizer sees the race.
TEST(Gate, ExcludesUnderStress) {
    constexpr int threads = 6;
    MEM_CATS_AND_MICE gate;
    long cells[threads] = {};
    long cat_rounds = 0;
    on_threads(threads, [&](int me) {
        for (int round = 0; round < 20000; ++round) {
            const bool is_cat = round % 64 == me;
            const MEM_GATE_SCOPE inside(gate, is_cat ? MEM_CAT : MEM_MOUSE);
            for (int cell = is_cat ? 0 : me; cell < (is_cat ? threads : me + 1); ++cell) ++cells[cell];
            if (is_cat) ++cat_rounds;
        }
    });
    EXPECT_EQ(std::accumulate(cells, cells + threads, 0L), threads * 20000 + (threads - 1) * cat_rounds);
    expect_empty(gate);
}

}  // namespace
