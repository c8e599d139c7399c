// Stacks by the walker of the C++ runtime, which shares no code with ours, and the comparison.
#pragma once

#include <gtest/gtest.h>
#include <unwind.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "platform/kept_stack.h"
#include "platform/ktl_err.h"
#include "platform/stack_walk.h"

using PCS = std::vector<std::uint64_t>;

constexpr std::int32_t MOST_FRAMES = 512;

// The callers of the calling function, innermost first.
__attribute__((noinline)) inline PCS callers_by_the_runtime() {
    PCS pcs;
    const auto store_frame = [](_Unwind_Context* context, void* stored) {
        const std::uint64_t pc = _Unwind_GetIP(context);
        if (pc == 0) return _URC_END_OF_STACK;
        static_cast<PCS*>(stored)->push_back(pc);
        return _URC_NO_REASON;
    };
    _Unwind_Backtrace(store_frame, &pcs);
    pcs.erase(pcs.begin(), pcs.begin() + 2);  // this function and the one that calls it
    return pcs;
}

inline PCS walked(const STACK_WALK_START& start, bool fresh) {
    PCS pcs(MOST_FRAMES);
    STACK_WALK walk(start, fresh);
    std::int32_t count = walk.next(pcs.data(), 2);  // in two goes
    if (count == 2) count += walk.next(pcs.data() + 2, MOST_FRAMES - 2);
    pcs.resize(static_cast<std::size_t>(count));
    return pcs;
}

// By the walk that keeps the frames of the thread's last one, wherever that was.
inline PCS walked_and_kept(const STACK_WALK_START& start) {
    thread_local KEPT_STACK stack;
    stack.walk(start);
    PCS pcs;
    for (std::uint32_t at = stack.size(); at-- > 0;) pcs.push_back(stack.frame(at).pc);
    return pcs;
}

// Compares the callers of this function as both walkers see them, with and without the table of rules.
__attribute__((noinline)) inline void compare_stacks() {
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    const PCS expected = callers_by_the_runtime();
    ASSERT_GE(expected.size(), 3U);
    const PCS kept = walked_and_kept(start);
    EXPECT_GE(kept.size(), std::min<std::size_t>(expected.size(), KEPT_STACK::depth));
    EXPECT_TRUE(std::equal(kept.begin(), kept.end(), expected.begin())) << "with the frames of the last walk";
    EXPECT_EQ(walked(start, false), expected) << "with the table";
    EXPECT_EQ(walked(start, true), expected) << "without the table";
}

// What the default unwinder stores. Its own frame is the first one, and this function's the second.
__attribute__((noinline)) inline PCS capture(std::int32_t max_frames, std::int32_t skip) {
    PCS pcs(static_cast<std::size_t>(max_frames));
    errno = EBADF;
    const std::int32_t count =
        ERR_UNWINDER::get_default_unwinder()->capture_stack(pcs.data(), max_frames, skip, 0);
    EXPECT_EQ(errno, EBADF);
    pcs.resize(static_cast<std::size_t>(count));
    return pcs;
}
