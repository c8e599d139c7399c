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

void RULE_TABLE::start_new_generation() {
    const std::uint64_t wrap = (std::uint64_t{1} << GENERATION_BITS) - 1;
    std::uint64_t now = generation_.load(std::memory_order_relaxed);
    const std::uint64_t next = (now + 1) & wrap;
    // A thread that loses here was overtaken by another that did the same.
    if (!generation_.compare_exchange_strong(now, next, std::memory_order_relaxed)) return;
    if (next != 0) return;
    for (SET& set : sets_) {  // the numbers begin anew, and old rules must not come back with them
        for (RULE_ENTRY& way : set.ways) way.set(0, 0);
    }
}

}  // namespace unwind
