#include "platform/unwind/rule_table.h"

namespace unwind {

constinit RULE_TABLE rule_table;

void RULE_TABLE::store(std::uint64_t pc, bool exact, FRAME_RULE rule) {
    const std::uint64_t key = key_of(pc, exact);
    SET& set = sets_[index_of(pc)];
    if (!set.ways[1].rule_for(key).is_none()) {
        set.ways[1].set(key, rule.bits);
        return;
    }
    // The older rule of the set gives way.
    if (set.ways[0].rule_for(key).is_none()) set.ways[1].copy(set.ways[0]);
    set.ways[0].set(key, rule.bits);
}

// An odd step visits every word. A thread that loses here was overtaken by another that did the same.
void RULE_TABLE::start_new_generation() {
    constexpr std::uint64_t STEP = 0x9e3779b97f4a7c15U;
    std::uint64_t now = generation_.load(std::memory_order_relaxed);
    generation_.compare_exchange_strong(now, now + STEP, std::memory_order_relaxed);
}

}  // namespace unwind
