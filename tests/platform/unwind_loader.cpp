// The walker and the loader: modules that come and go under it, and locks that it must not wait for.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "platform/unwind/rule_table.h"
#include "tests/bins/on_threads.h"
#include "unwind_reference.h"

namespace {

std::atomic<bool> walk_in_calloc{false};

}  // namespace

// The loader allocates its description of a module here, as it does with any allocator that is loaded.
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" __attribute__((noinline, visibility("default"))) void* calloc(std::size_t count,
                                                                         std::size_t size) noexcept {
    if (walk_in_calloc.load(std::memory_order_relaxed)) {
        std::uint64_t pcs[16];
        STACK_WALK(stack_walk_start(__builtin_frame_address(0))).next(pcs, 16);
    }
    return __libc_calloc(count, size);
}

namespace {

using PLUGIN = void (*)(void (*visit)());

struct LOADED_PLUGIN {
    explicit LOADED_PLUGIN(const char* path) : module(dlopen(path, RTLD_LAZY)) {}
    ~LOADED_PLUGIN() { dlclose(module); }
    PLUGIN entry() const { return reinterpret_cast<PLUGIN>(dlsym(module, "unwind_plugin")); }
    void* const module;
};

const char* const PATHS[] = {UNWIND_PLUGIN_A, UNWIND_PLUGIN_B};

std::set<std::uint64_t> known_pcs;

// As a tracker walks: anew, without the table, when it meets a program counter for the first time.
__attribute__((noinline)) void visit_like_a_tracker() {
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    std::uint64_t pcs[4] = {};
    STACK_WALK(start).next(pcs, 4);
    if (!std::all_of(pcs, pcs + 4, [](std::uint64_t pc) { return known_pcs.contains(pc); }))
        STACK_WALK(start, true).next(pcs, 4);
    known_pcs.insert(pcs, pcs + 4);
    compare_stacks();
}

std::uint64_t pcs_from_plugin[2];

__attribute__((noinline)) void visit_and_remember() {
    STACK_WALK(stack_walk_start(__builtin_frame_address(0))).next(pcs_from_plugin, 2);
}

TEST(StackWalkAndLoader, ForgetsRulesWhenTheLoaderAllocates) {
    LOADED_PLUGIN(UNWIND_PLUGIN_A).entry()(visit_and_remember);
    EXPECT_FALSE(unwind::rule_table.find(pcs_from_plugin[0], false).is_none());
    walk_in_calloc = true;
    const LOADED_PLUGIN at_the_same_address(UNWIND_PLUGIN_B);
    walk_in_calloc = false;
    EXPECT_TRUE(unwind::rule_table.find(pcs_from_plugin[0], false).is_none());
}

TEST(StackWalkAndLoader, ForgetsRulesWhenAProgramCounterIsNew) {
    std::set<PLUGIN> entries;
    for (int i = 0; i < 20; ++i) {
        const LOADED_PLUGIN plugin(PATHS[i % 2]);
        plugin.entry()(visit_like_a_tracker);
        entries.insert(plugin.entry());
    }
    EXPECT_EQ(entries.size(), 1U) << "each must find the other's rules";
}

// The rules of the first plugin lead into the zeroes of the second one's larger frames.
TEST(StackWalkAndLoader, CapturesAgainWhenAStackBreaksOff) {
    for (int i = 0; i < 10; ++i) {
        LOADED_PLUGIN(UNWIND_PLUGIN_A).entry()([] {
            std::uint64_t pcs[8];
            EXPECT_EQ(STACK_WALK(stack_walk_start(__builtin_frame_address(0)), true).next(pcs, 8), 8);
        });
        LOADED_PLUGIN(UNWIND_PLUGIN_B).entry()([] {
            EXPECT_EQ(capture(MOST_FRAMES, 3), callers_by_the_runtime());
        });
    }
}

// Whatever a rule says, a walk ends and reads nothing that is not there.
void walk_by_made_up_rules() {
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    std::mt19937_64 random(1);
    std::uint64_t pcs[61];
    const std::int32_t depth = STACK_WALK(start, true).next(pcs, 61);
    for (int i = 0; i < 20000; ++i) {
        // Offsets and slots are small, or hardly any would lead to another frame; slots lie below the CFA,
        // as in every rule that is worked out.
        const std::uint64_t offset = random() % 512 << unwind::FRAME_RULE::OFFSET_SHIFT;
        std::uint64_t low = random() >> (64 - unwind::FRAME_RULE::OFFSET_SHIFT);
        low = (low | 0xfe00ULL << unwind::FRAME_RULE::SLOT_SHIFT) & ~(8ULL << unwind::FRAME_RULE::SLOT_SHIFT);
        unwind::rule_table.store(pcs[i % depth], false, {offset | (i % 2 == 0 ? low : low & ~0xceULL)});
        std::uint64_t wrong[61];
        EXPECT_GE(STACK_WALK(start).next(wrong, 61), 1);
    }
    unwind::rule_table.start_new_generation();
    EXPECT_EQ(walked(start, true), callers_by_the_runtime());
}

TEST(StackWalkAndLoader, WrongRulesDoNoHarm) {
    walk_by_made_up_rules();
    std::thread(walk_by_made_up_rules).join();
}

TEST(StackWalkAndLoader, ColdWalksWhileModulesComeAndGo) {
    const Meanwhile loader(1, [i = 0]() mutable { const LOADED_PLUGIN plugin(PATHS[++i % 2]); });
    for (int i = 0; i < 3000; ++i) compare_stacks();
}

}  // namespace
