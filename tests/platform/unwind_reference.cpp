#include "unwind_reference.h"

#include <unwind.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "platform/ktl_err.h"
#include "platform/stack_walk.h"

namespace {

constexpr std::int32_t MOST_FRAMES = 256;

struct STACK {
    std::uint64_t pcs[MOST_FRAMES];
    std::int32_t count = 0;
};

// Not on the stack: handlers compare on small alternate stacks.
thread_local STACK reference;
thread_local STACK walked;
int deepest = 0;
char difference[512];

_Unwind_Reason_Code store_frame(_Unwind_Context* context, void*) {
    const std::uint64_t pc = _Unwind_GetIP(context);
    if (pc == 0 || reference.count == MOST_FRAMES) return _URC_END_OF_STACK;
    reference.pcs[reference.count++] = pc;
    return _URC_NO_REASON;
}

void walk(const STACK_WALK_START& start, bool fresh) {
    STACK_WALK walk(start, fresh);
    walked.count = walk.next(walked.pcs, 2);  // in two goes
    if (walked.count == 2) walked.count += walk.next(walked.pcs + 2, MOST_FRAMES - 2);
}

// The reference begins with the frame that asked for it, which a walk does not see.
void note_difference(const char* kind) {
    const std::int32_t count = std::min(reference.count - 1, walked.count);
    const std::uint64_t* wanted = reference.pcs + 1;
    const auto at = std::mismatch(wanted, wanted + count, walked.pcs).second - walked.pcs;
    if (reference.count - 1 == walked.count && at == count) return;
    if (difference[0] != 0) return;
    std::snprintf(difference, sizeof difference, "%s: %d frames instead of %d, different at %d: %lx for %lx",
                  kind, walked.count, reference.count - 1, static_cast<int>(at),
                  at < walked.count ? walked.pcs[at] : 0, at < reference.count - 1 ? wanted[at] : 0);
}

}  // namespace

__attribute__((noinline)) void compare_stacks() {
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    reference.count = 0;
    _Unwind_Backtrace(store_frame, nullptr);
    walk(start, false);
    note_difference("with the table");
    walk(start, true);
    note_difference("without the table");
    deepest = std::max(deepest, walked.count);
}

__attribute__((noinline)) void compare_capture() {
    reference.count = 0;
    _Unwind_Backtrace(store_frame, nullptr);
    walked.count = ERR_UNWINDER::get_default_unwinder()->capture_stack(walked.pcs, MOST_FRAMES, 2, 0);
    note_difference("by the unwinder");
    deepest = std::max(deepest, walked.count);
}

COMPARED_STACKS take_compared_stacks() {
    const COMPARED_STACKS result{deepest, difference};
    deepest = 0;
    difference[0] = 0;
    return result;
}
