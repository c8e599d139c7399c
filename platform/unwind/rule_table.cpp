#include "platform/unwind/rule_table.h"

namespace unwind {

constinit RULE_TABLE rule_table;

void RULE_TABLE::store(std::uint64_t pc, bool exact, FRAME_RULE rule) {
    const std::uint64_t key = key_of(pc, exact);
    SET& set = sets_[hash_of(pc) & mask()];
    if (!set.ways[1].rule_for(key).is_none()) {
        set.ways[1].set(key, rule.bits);
        return;
    }
    // The older rule of the set gives way.
    const bool is_new = set.ways[0].rule_for(key).is_none();
    if (is_new) set.ways[1].copy(set.ways[0]);
    set.ways[0].set(key, rule.bits);
    if (!is_new) return;
    const std::uint64_t stored = stored_.load(std::memory_order_relaxed) + 1;
    stored_.store(stored, std::memory_order_relaxed);
    if (stored > mask() / 2 && mask() + 1 < MOST_SETS) grow();
}

// Doubles the sets. Whoever comes meanwhile may miss a rule, and works it out.
void RULE_TABLE::grow() {
    if (is_growing_.exchange(true, std::memory_order_relaxed)) return;
    const std::uint64_t sets = mask() + 1;
    if (sets < MOST_SETS) {
        for (std::uint64_t index = 0; index < sets; ++index) split(index, sets);
        added_mask_.store((2 * sets - 1) & ~(FIRST_SETS - 1), std::memory_order_relaxed);
    }
    is_growing_.store(false, std::memory_order_relaxed);
}

// Moves what belongs there to the set that is added beside this one. Rules of an earlier generation may go
// anywhere: they match no key.
void RULE_TABLE::split(std::uint64_t index, std::uint64_t sets) {
    constexpr std::uint64_t EXACT = std::uint64_t{1} << 63;
    for (int way = 0; way < 2; ++way) {
        RULE_ENTRY& entry = sets_[index].ways[way];
        const std::uint64_t pc = (entry.key() ^ generation()) & ~EXACT;
        if (entry.is_empty() || (hash_of(pc) & sets) == 0) continue;
        sets_[index + sets].ways[way].copy(entry);
        entry.set(0, 0);
    }
}

// An odd step visits every word. A thread that loses here was overtaken by another that did the same.
void RULE_TABLE::start_new_generation() {
    constexpr std::uint64_t STEP = 0x9e3779b97f4a7c15U;
    std::uint64_t now = generation_.load(std::memory_order_relaxed);
    if (generation_.compare_exchange_strong(now, now + STEP, std::memory_order_relaxed))
        stored_.store(0, std::memory_order_relaxed);
}

}  // namespace unwind
