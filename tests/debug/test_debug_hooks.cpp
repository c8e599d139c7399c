// The hooks of the debugging aids, called by hand under an allocator that only counts them.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ktl_mem/debug_patterns.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/thread_state.h"
#include "mem/debug/allocation_log.h"
#include "mem/debug/debug_patterns.h"
#include "tests/bins/on_threads.h"

namespace {

int attached, detached, ownership;

class DebugHooks : public testing::Test {
  protected:
    DebugHooks() {
        attached = detached = 0;
        ownership = 1;
        MallocHook_AddNewHook = [](MEM_NEW_HOOK) { return ++attached; };
        MallocHook_AddDeleteHook = [](MEM_DELETE_HOOK) { return ++attached; };
        MallocHook_RemoveNewHook = [](MEM_NEW_HOOK) { return ++detached; };
        MallocHook_RemoveDeleteHook = [](MEM_DELETE_HOOK) { return ++detached; };
        MallocExtension_GetOwnership = [](const void*) { return ownership; };
        tc_malloc_size = [](void*) -> std::size_t { return errno = 12; };
        std::filesystem::current_path(testing::TempDir());
    }
    static std::string log() {
        std::ifstream file("mem_allocations.log");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string block = "................";
};

TEST_F(DebugHooks, PatternsFillOwnedBlocksOfTheHostOnly) {
    mem_set_alloc_pattern('n' + 256);
    mem_set_free_pattern('f');
    const std::string untouched = "................................";
    const MEM_THREAD_STATE at_rest, in_event{.in_tracker = true}, at_own_work{.does_own_work = true},
        blocked_by_host{.tracking_blocked = true};
    const std::tuple<const void*, MEM_THREAD_STATE, int, std::string> cases[] = {
        {nullptr, at_rest, 1, untouched},
        {block.data(), in_event, 1, untouched},
        {block.data(), at_own_work, 1, untouched},
        {block.data(), at_rest, 2, untouched},
        {block.data(), blocked_by_host, 1, "nnnnnnnnnn......ffffffffffff...."},
        {block.data(), at_rest, 1, "nnnnnnnnnn......ffffffffffff...."}};
    for (const auto& [target, state, owner, filled] : cases) {
        mem_thread_state = state;
        block.assign(16, '.');
        ownership = owner;
        mem_alloc_pattern_hook(target, 10);
        const std::string after_new = block;
        mem_free_pattern_hook(target);
        EXPECT_EQ(after_new + block, filled);
    }
    mem_disable_alloc_patterns();
}

TEST_F(DebugHooks, EachSetAttachesOnceMoreAndADisableDetachesOnce) {
    mem_disable_alloc_patterns();
    EXPECT_EQ(detached, 0);
    mem_set_alloc_pattern(1);
    mem_set_alloc_pattern(2);
    mem_disable_alloc_patterns();
    mem_disable_alloc_patterns();
    EXPECT_EQ(attached, 2);
    EXPECT_EQ(detached, 1);
}

TEST_F(DebugHooks, TheLogClosesUnderThreadsThatWriteAndBeginsAnew) {
    const std::string line = "ptr=0xab10, size=100, type=alloc\n";
    const void* const block_address = reinterpret_cast<const void*>(0xab10);
    for (int round = 0; round < 20; ++round) {
        mem_set_print_allocations_callback_enabled(true);
        EXPECT_EQ(log(), "");
        std::string text;
        {
            const Meanwhile writing(2, [&] { mem_log_alloc_hook(block_address, 100); });
            while (std::filesystem::file_size("mem_allocations.log") < 2000) std::this_thread::yield();
            mem_close_allocation_log();
            text = log();
        }
        EXPECT_EQ(log(), text);
        for (std::size_t at = 0; at < text.size(); at += line.size())
            ASSERT_EQ(text.substr(at, line.size()), line);
    }
    mem_set_print_allocations_callback_enabled(true);
    errno = 77;
    mem_log_free_hook(block_address);
    mem_log_free_hook(nullptr);
    ownership = 2;
    mem_log_free_hook(block_address);
    EXPECT_EQ(log(), "ptr=0xab10, size=12, type=free\n");
    EXPECT_EQ(errno, 77);
    mem_close_allocation_log();
}

}  // namespace
