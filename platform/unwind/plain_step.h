// The step of nearly every frame: sp and bp suffice, and all that is read lies on the thread's own stack.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/stack_walk.h"
#include "platform/unwind/frame_rule.h"

namespace unwind {

inline constexpr std::uint64_t WORD = 8;

inline std::uint64_t word_at(std::uint64_t address) {
    std::uint64_t value;
    std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof value);
    return value;
}

inline bool may_be_code(std::uint64_t pc) {
    constexpr std::uint64_t LOWEST_CODE = 4096;
    constexpr std::uint64_t ADDRESS_END = std::uint64_t{1} << 47;
    return pc - LOWEST_CODE < ADDRESS_END - LOWEST_CODE;
}

// Goes to the caller of a frame whose stack can be read up to stack_end. False, with the frame as it was,
// when that takes more than a plain step or the rule cannot be right. The rule 0 never is.
inline bool take_plain_step(FRAME_RULE rule, std::uint64_t stack_end, STACK_WALK_START& frame) {
    const std::uint64_t cfa = (rule.base_is_bp() ? frame.bp : frame.sp) + rule.offset();
    const std::uint64_t slot = cfa + rule.slot();
    if (rule.is_cold() || cfa < frame.sp + WORD || cfa > stack_end || slot < frame.sp) [[unlikely]]
        return false;
    const std::uint64_t pc = word_at(cfa - WORD);
    if (!may_be_code(pc)) [[unlikely]]
        return false;
    frame = {pc, cfa, rule.saves_bp_below_cfa() ? word_at(slot) : frame.bp};
    return true;
}

}  // namespace unwind
