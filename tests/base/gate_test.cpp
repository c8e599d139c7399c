#include "mem/base/gate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

void expect_empty(const MEM_CATS_AND_MICE& gate) {
    EXPECT_EQ(gate.mice(), 0);
    EXPECT_EQ(gate.cats(), 0);
    EXPECT_EQ(gate.cats_approaching(), 0);
}

TEST(Gate, CountsWhoIsInside) {
    MEM_CATS_AND_MICE gate;
    gate.enter(MEM_MOUSE);
    EXPECT_EQ(gate.mice(), 1);
    gate.leave(MEM_MOUSE);
    expect_empty(gate);
    gate.enter(MEM_CAT);
    EXPECT_EQ(gate.cats(), 1);
    EXPECT_EQ(gate.cats_approaching(), 0);
    gate.leave(MEM_CAT);
    expect_empty(gate);
    gate.enter(2);
    gate.leave(2);
    expect_empty(gate);
}

TEST(GateDeathTest, UnmatchedLeavesAreInternalErrors) {
    struct {
        int entered, left;  // -1: nobody entered
        const char* error;
    } const cases[] = {{-1, MEM_MOUSE, "mice >= 0.*908"},
                       {-1, MEM_CAT, "cats == 0.*901"},
                       {MEM_MOUSE, MEM_CAT, "mice == 0.*900"},
                       {MEM_CAT, MEM_MOUSE, "cats == 0.*907"}};
    for (const auto& [entered, left, error] : cases) {
        MEM_CATS_AND_MICE gate;
        if (entered >= 0) gate.enter(entered);
        EXPECT_DEATH(gate.leave(left), error);
        if (entered >= 0) gate.leave(entered);
    }
}

// An announced cat stops new mice, and gets in when those inside have left.
TEST(Gate, AnnouncedCatStopsMice) {
    MEM_CATS_AND_MICE gate;
    std::atomic<bool> cat_left{false};
    gate.enter(MEM_MOUSE);
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
    std::vector<std::thread> all;
    for (int me = 0; me < threads; ++me) {
        all.emplace_back([&, me] {
            for (int round = 0; round < 20000; ++round) {
                if (round % 64 == me) {
                    const MEM_GATE_SCOPE alone(gate, MEM_CAT);
                    for (long& cell : cells) ++cell;
                    ++cat_rounds;
                } else {
                    const MEM_GATE_SCOPE inside(gate, MEM_MOUSE);
                    ++cells[me];
                }
            }
        });
    }
    for (std::thread& thread : all) thread.join();
    long sum = 0;
    for (const long cell : cells) sum += cell;
    EXPECT_EQ(sum, threads * 20000 - cat_rounds + threads * cat_rounds);
    expect_empty(gate);
}

TEST(SpinLock, ExcludesAndReportsOwnershipErrors) {
    MEM_SPIN_LOCK lock;
    long counter = 0;
    std::vector<std::thread> all;
    for (int i = 0; i < 4; ++i)
        all.emplace_back([&] {
            for (int round = 0; round < 20000; ++round) {
                const std::lock_guard<MEM_SPIN_LOCK> guard(lock);
                ++counter;
            }
        });
    for (std::thread& thread : all) thread.join();
    EXPECT_EQ(counter, 80000);
    std::unique_lock<MEM_SPIN_LOCK> guard(lock);
    EXPECT_THROW(guard.lock(), std::system_error);
    guard.unlock();
    EXPECT_THROW(guard.unlock(), std::system_error);
}

}  // namespace
