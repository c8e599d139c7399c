// The rules that were worked out already, for all threads. Without locks: an entry is {key ^ mix(rule),
// rule}, so that two halves of different writers give a key that nobody asks for. A rule may get lost, and
// is then worked out again; it is never taken for that of another program counter.
//
// The table lies in memory that is zeroed when it is first touched, and uses the more of it the more rules it
// holds: a short process has a few hundred.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/unwind/frame_rule.h"

namespace unwind {

// One rule, of the program counter and the generation in its key.
class RULE_ENTRY {
  public:
    // Relaxed: check and rule vouch for each other, and nothing else is published with them.
    FRAME_RULE rule_for(std::uint64_t key) const {
        const std::uint64_t bits = rule_.load(std::memory_order_relaxed);
        return {(check_.load(std::memory_order_relaxed) ^ mix(bits)) == key ? bits : 0};
    }
    void set(std::uint64_t key, std::uint64_t bits) {
        check_.store(key ^ mix(bits), std::memory_order_relaxed);
        rule_.store(bits, std::memory_order_relaxed);
    }
    // Torn halves stay no match.
    void copy(const RULE_ENTRY& other) {
        check_.store(other.check_.load(std::memory_order_relaxed), std::memory_order_relaxed);
        rule_.store(other.rule_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    }

    // The key under which the entry holds a rule; means nothing in an entry without.
    std::uint64_t key() const {
        return check_.load(std::memory_order_relaxed) ^ mix(rule_.load(std::memory_order_relaxed));
    }
    bool is_empty() const { return rule_.load(std::memory_order_relaxed) == 0; }

  private:
    // Neighbouring program counters have rules that differ in few bits, as they do themselves; spread, a
    // difference of two rules can't look like a difference of two keys.
    static constexpr std::uint64_t mix(std::uint64_t bits) { return bits * 0x9e3779b97f4a7c15U; }

    std::atomic<std::uint64_t> check_{0};
    std::atomic<std::uint64_t> rule_{0};
};

class RULE_TABLE {
  public:
    // The key under which an entry holds the rule of pc in this generation.
    std::uint64_t key_of(std::uint64_t pc, bool exact) const {
        return (pc | (static_cast<std::uint64_t>(exact) << 63)) ^ generation_.load(std::memory_order_relaxed);
    }

    // The rule of pc, or the rule 0.
    FRAME_RULE find(std::uint64_t pc, bool exact) const {
        const std::uint64_t key = key_of(pc, exact);
        const SET& set = sets_[hash_of(pc) & mask()];
        const FRAME_RULE first = set.ways[0].rule_for(key);
        return first.is_none() ? set.ways[1].rule_for(key) : first;
    }

    void store(std::uint64_t pc, bool exact, FRAME_RULE rule);

    // Differs from what it was whenever rules have been found wrong, or may be, because modules came or went.
    std::uint64_t generation() const { return generation_.load(std::memory_order_relaxed); }

    // Makes every rule that is there unknown again.
    void start_new_generation();

  private:
    static constexpr std::uint64_t FIRST_SETS = 256;
    static constexpr std::uint64_t MOST_SETS = 8192;
    struct alignas(32) SET {
        RULE_ENTRY ways[2];
    };

    static constexpr std::uint64_t hash_of(std::uint64_t pc) { return (pc * 0x9e3779b97f4a7c15U) >> 32; }
    std::uint64_t mask() const { return (FIRST_SETS - 1) | added_mask_.load(std::memory_order_relaxed); }
    void grow();
    void split(std::uint64_t index, std::uint64_t sets);

    SET sets_[MOST_SETS];
    // Of the sets in use beyond the first ones.
    std::atomic<std::uint64_t> added_mask_{0};
    // Rules that were new to the table since the last generation, also those that had given way before.
    std::atomic<std::uint64_t> stored_{0};
    std::atomic<bool> is_growing_{false};
    // A word that keys are mixed with. Whoever keeps keys of his own may keep them for ever: no word comes
    // back before all others had their turn.
    std::atomic<std::uint64_t> generation_{0};
};

extern constinit RULE_TABLE rule_table;

}  // namespace unwind
