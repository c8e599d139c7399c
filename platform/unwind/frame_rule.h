// How to get from a frame to its caller, in 64 bits. The canonical frame address (CFA) is the value that sp
// has in the caller; the return address lies right below it.
#pragma once

#include <cstdint>

namespace unwind {

enum class RULE_KIND : std::uint8_t {
    plain,          // CFA = base + offset
    dereference,    // CFA = [base + offset] + addend
    signal,         // the kernel's frame: the registers lie in a ucontext at sp
    end,            // the return address is undefined: outermost frame
    all_registers,  // needs more than sp and bp
    guess           // no information: a frame pointer, if bp looks like one
};

enum class SAVED_BP : std::uint8_t { in_place, below_cfa, near_bp, near_sp };

// Bits, from the lowest: base (1), kind (3), saved bp (2), end confirmed (1), loader (1), addend (12),
// slot (16), offset (28). A slot below the CFA is a whole word below it. The kinds of the hot path are those
// whose COLD_BITS are clear. The rule 0 means "none": it is a plain one whose CFA is sp itself, which no
// frame can have.
struct FRAME_RULE {
    static constexpr std::uint64_t BASE_IS_BP = 1;
    static constexpr unsigned KIND_SHIFT = 1;
    static constexpr unsigned SAVED_SHIFT = 4;
    static constexpr std::uint64_t SAVED_BELOW_CFA = 1U << SAVED_SHIFT;
    static constexpr std::uint64_t END_CONFIRMED = 1U << 6;
    static constexpr std::uint64_t IN_LOADER = 1U << 7;
    static constexpr std::uint64_t COLD_BITS = (7U << KIND_SHIFT) | (2U << SAVED_SHIFT) | IN_LOADER;
    static constexpr unsigned ADDEND_SHIFT = 8;
    static constexpr unsigned SLOT_SHIFT = 20;
    static constexpr unsigned OFFSET_SHIFT = 36;

    std::uint64_t bits = 0;

    constexpr bool is_none() const { return bits == 0; }
    constexpr bool is_cold() const { return (bits & COLD_BITS) != 0; }
    constexpr bool base_is_bp() const { return (bits & BASE_IS_BP) != 0; }
    constexpr RULE_KIND kind() const { return static_cast<RULE_KIND>((bits >> KIND_SHIFT) & 7); }
    constexpr SAVED_BP saved_bp() const { return static_cast<SAVED_BP>((bits >> SAVED_SHIFT) & 3); }
    constexpr bool saves_bp_below_cfa() const { return (bits & SAVED_BELOW_CFA) != 0; }
    constexpr bool end_confirmed() const { return (bits & END_CONFIRMED) != 0; }
    constexpr bool in_loader() const { return (bits & IN_LOADER) != 0; }
    constexpr std::int64_t addend() const {
        return static_cast<std::int64_t>(bits << (64 - SLOT_SHIFT)) >> (64 - SLOT_SHIFT + ADDEND_SHIFT);
    }
    constexpr std::int64_t slot() const { return static_cast<std::int16_t>(bits >> SLOT_SHIFT); }
    constexpr std::int64_t offset() const { return static_cast<std::int64_t>(bits) >> OFFSET_SHIFT; }

    constexpr FRAME_RULE with(std::uint64_t flags) const { return {bits | flags}; }
    constexpr bool same_steps_as(FRAME_RULE other) const {
        return ((bits ^ other.bits) & ~END_CONFIRMED) == 0;
    }
};

constexpr FRAME_RULE rule_of_kind(RULE_KIND kind) {
    return {static_cast<std::uint64_t>(kind) << FRAME_RULE::KIND_SHIFT};
}

// The rule for pc, from the call frame information of its module. With exact, pc is an instruction that
// goes on; without, it is a return address, and the call before it counts.
FRAME_RULE compute_rule(std::uint64_t pc, bool exact);

}  // namespace unwind
