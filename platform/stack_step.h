// What a walk has learnt about one program counter, for a caller that keeps data by program counter anyway:
// it saves the walker's own look-up. Like a walk this allocates nothing, takes no lock and changes no errno.
#pragma once

#include <cstdint>

#include "platform/stack_walk.h"
#include "platform/unwind/plain_step.h"
#include "platform/unwind/rule_table.h"
#include "platform/unwind/stack_memory.h"

// Up to where the stack that sp lies on is known to be readable.
inline std::uint64_t known_stack_end(std::uint64_t sp) {
    return unwind::known_stack.holds(sp) ? unwind::known_stack.end : unwind::end_of_page(sp);
}

// Of one program counter at a time, on any number of threads at once.
class STACK_STEP {
  public:
    // Goes from the frame, which no signal has interrupted, to its caller. False, with the frame as it was,
    // when nothing is known for its program counter, or when the step is one for STACK_WALK.
    bool take(STACK_WALK_START& frame, std::uint64_t stack_end) const {
        const std::uint64_t key = unwind::rule_table.key_of(frame.pc, false);
        return unwind::take_plain_step(rule_.rule_for(key), stack_end, frame);
    }

    // Takes over what the walker knows about the program counter.
    void learn(std::uint64_t pc) {
        rule_.set(unwind::rule_table.key_of(pc, false), unwind::rule_table.find(pc, false).bits);
    }

  private:
    unwind::RULE_ENTRY rule_;
};
