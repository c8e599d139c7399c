// The walker against an independent one, on stacks of every shape and origin.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <algorithm>
#include <csetjmp>
#include <random>
#include <thread>

#include "platform/ktl_err.h"
#include "platform/stack_walk.h"
#include "platform/unwind/rule_table.h"
#include "unwind_reference.h"
#include "unwind_shapes.h"

namespace {

void compare_in_all_shapes() {
    for (const auto& set : {shapes::unoptimised(), shapes::optimised(), shapes::aggressive()})
        for (const shapes::SHAPE& shape : set) {
            SCOPED_TRACE(shape.name);
            shape.run(compare_stacks, shape.size);
        }
}

TEST(StackWalk, AgreesOnEveryShapeOfFrameAndThread) {
    compare_in_all_shapes();
    std::thread(compare_in_all_shapes).join();
}

ucontext_t host, coroutine;

TEST(StackWalk, AgreesInACoroutine) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "AddressSanitizer takes exceptions on a coroutine's stack for overflows";
#endif
    constexpr std::size_t SIZE = 1 << 20;
    const auto stack = std::make_unique<char[]>(SIZE);
    ASSERT_EQ(getcontext(&coroutine), 0);
    coroutine.uc_stack.ss_sp = stack.get();
    coroutine.uc_stack.ss_size = SIZE;
    coroutine.uc_link = &host;
    makecontext(&coroutine, compare_in_all_shapes, 0);
    ASSERT_EQ(swapcontext(&host, &coroutine), 0);
}

// Goes up and down at random, and leaves by return, by an exception or by a jump. Frames are of many sizes,
// so that a frame seldom lies where another one was; equal calls in a row make it lie there again.
class Wanderer {
  public:
    void wander() {
        for (round = 0; round < 60; ++round) {
            steps_left = 40;
            try {
                if (setjmp(start) == 0) go(static_cast<int>(random() % 8 == 0 ? 320 : random() % 20));
            } catch (int) {
            }
        }
    }

  private:
    __attribute__((noinline)) void go(int down) {
        auto* const moved = static_cast<volatile char*>(__builtin_alloca(16 + 16 * (random() % 3)));
        moved[0] = 0;
        if (down > 0) go(down - 1);
        if (--steps_left < 0) return;
        compare_stacks();
        if (random() % 4 == 0) go(static_cast<int>(random() % 4));
        if (random() % 64 == 0) throw 0;
        if (random() % 64 == 0) longjmp(start, 1);
        compare_stacks();
    }

    std::minstd_rand random;
    std::jmp_buf start;
    int steps_left = 0;
    int round = 0;  // a member, so that no jump can lose it
};

TEST(KeptStack, AgreesWhereverTheStackHasBeen) {
    Wanderer().wander();
    std::thread([] { Wanderer().wander(); }).join();
}

// A thread and a coroutine whose stacks a program has cut from one mapping, the coroutine's below. Then the
// page between them goes, and a frame of generated code has a frame pointer that leads there.
constexpr std::size_t HALF = 1 << 19;
char* two_stacks;

void walk_into_the_hole() {
    compare_in_all_shapes();
    ASSERT_EQ(mprotect(two_stacks + HALF - 4096, 4096, PROT_NONE), 0);
    const auto hole = reinterpret_cast<std::uint64_t>(two_stacks + HALF - 2048);
    const auto here = reinterpret_cast<std::uint64_t>(__builtin_frame_address(0));
    std::uint64_t pcs[4] = {};
    EXPECT_EQ(STACK_WALK({reinterpret_cast<std::uint64_t>(two_stacks), here, hole}).next(pcs, 4), 1);
}

void* walk_on_two_stacks(void*) {
    compare_in_all_shapes();
    getcontext(&coroutine);
    coroutine.uc_stack.ss_sp = two_stacks;
    coroutine.uc_stack.ss_size = HALF - 4096;
    coroutine.uc_link = &host;
    makecontext(&coroutine, walk_into_the_hole, 0);
    swapcontext(&host, &coroutine);
    compare_in_all_shapes();
    return nullptr;
}

TEST(StackWalk, ReadsNothingBeyondTheStackThatItIsOn) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers know only stacks of their own making, and need more of them";
#endif
    two_stacks = static_cast<char*>(
        mmap(nullptr, 2 * HALF, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, two_stacks + HALF, HALF);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, walk_on_two_stacks, nullptr), 0);
    pthread_join(thread, nullptr);
    munmap(two_stacks, 2 * HALF);
}

TEST(Unwinder, SkipsFramesAndGoesOnBehindThem) {
    const std::pair<std::int32_t, std::int32_t> cases[] = {{256, 0}, {3, 0},   {3, 1}, {11, 2},
                                                           {256, 5}, {50, 19}, {0, 0}, {256, 300}};
    PCS all;
    for (const auto& [max_frames, skip] : cases) {
        const PCS some = capture(max_frames, skip);
        if (all.empty()) all = some;
        const std::ptrdiff_t from = std::min<std::ptrdiff_t>(std::ssize(all), skip);
        const std::ptrdiff_t to = std::min<std::ptrdiff_t>(std::ssize(all), from + max_frames);
        const PCS expected(all.begin() + from, all.begin() + to);
        EXPECT_EQ(some, expected) << max_frames << " from " << skip;
    }
    ASSERT_GT(all.size(), 8U);
    // The unwinder's own frame is the first one.
    EXPECT_EQ(capture(MOST_FRAMES, 3), callers_by_the_runtime());
}

// Call sites keep what they have learnt under the key of its generation, however long the process lives.
TEST(RuleTable, NeverFindsARuleOfAnOlderGeneration) {
    constinit static unwind::RULE_TABLE table;
    constexpr std::uint64_t PC = 0x401234;
    const unwind::FRAME_RULE rule{0x12345};
    unwind::RULE_ENTRY learnt;
    table.store(PC, false, rule);
    learnt.set(table.key_of(PC, false), rule.bits);
    EXPECT_EQ(table.find(PC, false).bits, rule.bits);
    EXPECT_TRUE(table.find(PC, true).is_none());
    int found = 0;
    for (int generation = 0; generation < 200'000; ++generation) {
        table.start_new_generation();
        if (!table.find(PC, false).is_none() || !learnt.rule_for(table.key_of(PC, false)).is_none()) ++found;
    }
    EXPECT_EQ(found, 0);
}

TEST(RuleTable, KeepsNearlyAllRulesWhileItGrowsAndMixesUpNone) {
    constinit static unwind::RULE_TABLE table;
    constexpr std::uint64_t COUNT = 4000;
    const auto pc_of = [](std::uint64_t i) { return 0x401000 + 23 * i; };
    std::uint64_t found = 0;
    for (std::uint64_t i = 0; i < COUNT; ++i) table.store(pc_of(i), i % 2 != 0, {i + 1});
    for (std::uint64_t i = 0; i < COUNT; ++i) {
        const unwind::FRAME_RULE rule = table.find(pc_of(i), i % 2 != 0);
        if (rule.is_none()) continue;
        ++found;
        EXPECT_EQ(rule.bits, i + 1);
        EXPECT_TRUE(table.find(pc_of(i), i % 2 == 0).is_none());
    }
    EXPECT_GT(found, COUNT * 19 / 20);
}

TEST(InternalErrorDeathTest, IsOneLineAndAborts) {
    EXPECT_EXIT(err_report_internal_error("block != nullptr", "MEM", "mem/source", 3631),
                testing::KilledBySignal(SIGABRT),
                "^Internal error: block != nullptr \\(MEM, mem/source:3631\\)\n$");
}

}  // namespace
