#include "platform/unwind/frame_rule.h"

#include "platform/startup_modules.h"
#include "platform/unwind/call_frame.h"
#include "platform/unwind/frame_expression.h"
#include "platform/unwind/kept_programs.h"

namespace unwind {

namespace {

using BASE = EXPRESSION_VALUE::BASE;

constexpr std::int64_t WORD = 8;

constexpr bool fits(std::int64_t value, unsigned bits) {
    const std::int64_t limit = std::int64_t{1} << (bits - 1);
    return value >= -limit && value < limit;
}

constexpr std::uint64_t field(std::int64_t value, unsigned shift, unsigned bits) {
    return (static_cast<std::uint64_t>(value) & ((std::uint64_t{1} << bits) - 1)) << shift;
}

std::optional<EXPRESSION_VALUE> cfa_of(const FRAME_ROW& row, SYMBOLIC_SOURCE* source) {
    if (row.cfa_expression.begin != nullptr) return evaluate(row.cfa_expression, source, std::nullopt);
    std::optional<EXPRESSION_VALUE> value = source->read_register(row.cfa_register);
    if (value) value->number = row.cfa_offset;
    return value;
}

// The bits that say how the CFA is found.
std::optional<FRAME_RULE> cfa_rule(const EXPRESSION_VALUE& cfa) {
    if (cfa.is_number()) return std::nullopt;
    const bool direct = cfa.is_register();
    const bool on_bp = cfa.base == BASE::bp || cfa.base == BASE::at_bp;
    const std::int64_t offset = direct ? cfa.number : cfa.place;
    const std::int64_t addend = direct ? 0 : cfa.number;
    if (!fits(offset, 64 - FRAME_RULE::OFFSET_SHIFT) || !fits(addend, 12)) return std::nullopt;
    return rule_of_kind(direct ? RULE_KIND::plain : RULE_KIND::dereference)
        .with((on_bp ? FRAME_RULE::BASE_IS_BP : 0) | field(addend, FRAME_RULE::ADDEND_SHIFT, 12) |
              field(offset, FRAME_RULE::OFFSET_SHIFT, 28));
}

std::optional<std::uint64_t> saved_bits(SAVED_BP how, std::int64_t slot) {
    if (!fits(slot, 16)) return std::nullopt;
    return static_cast<std::uint64_t>(how) << FRAME_RULE::SAVED_SHIFT |
           field(slot, FRAME_RULE::SLOT_SHIFT, 16);
}

// A slot that is given from a register, or from the CFA when that is a register plus a number.
std::optional<std::uint64_t> saved_by_expression(const EXPRESSION_VALUE& cfa, std::int64_t place,
                                                 SYMBOLIC_SOURCE* source) {
    const std::optional<EXPRESSION_VALUE> slot = evaluate(expression_at(place), source, cfa);
    if (!slot || !slot->is_register()) return std::nullopt;
    return saved_bits(slot->base == BASE::bp ? SAVED_BP::near_bp : SAVED_BP::near_sp, slot->number);
}

// The bits that say where bp was saved.
std::optional<std::uint64_t> bp_bits(const FRAME_ROW& row, const EXPRESSION_VALUE& cfa,
                                     SYMBOLIC_SOURCE* source) {
    const std::int64_t value = row.value[RBP];
    switch (row.recovery[RBP]) {
        case RECOVERY::unchanged:
        case RECOVERY::undefined:
            return saved_bits(SAVED_BP::in_place, 0);
        case RECOVERY::saved_at_offset:
            if (value > -WORD) return std::nullopt;
            return saved_bits(SAVED_BP::below_cfa, value);
        case RECOVERY::saved_at_expression:
            return saved_by_expression(cfa, value, source);
        default:
            return std::nullopt;
    }
}

FRAME_RULE rule_of_row(const FRAME_ROW& row, std::uint64_t pc) {
    if (row.recovery[RETURN_ADDRESS] == RECOVERY::undefined) return rule_of_kind(RULE_KIND::end);
    const FRAME_RULE hard = rule_of_kind(RULE_KIND::all_registers);
    if (row.recovery[RETURN_ADDRESS] != RECOVERY::saved_at_offset) return hard;
    if (row.value[RETURN_ADDRESS] != -WORD) return hard;
    SYMBOLIC_SOURCE source(pc);
    const std::optional<EXPRESSION_VALUE> cfa = cfa_of(row, &source);
    if (!cfa) return hard;
    const std::optional<FRAME_RULE> rule = cfa_rule(*cfa);
    const std::optional<std::uint64_t> bp = bp_bits(row, *cfa, &source);
    return rule && bp ? rule->with(*bp) : hard;
}

FRAME_RULE rule_of_program(FRAME_PROGRAM& program, std::uint64_t address, std::uint64_t pc) {
    if (program.frame().is_signal_frame) return rule_of_kind(RULE_KIND::signal);
    if (!program.run_to(address)) return rule_of_kind(RULE_KIND::guess);
    return rule_of_row(program.row(), pc).with(program.frame().in_loader ? FRAME_RULE::IN_LOADER : 0);
}

__attribute__((noinline)) FRAME_RULE compute_rule_anew(std::uint64_t address, std::uint64_t pc) {
    CALL_FRAME frame;
    if (!find_call_frame(address, &frame)) return rule_of_kind(RULE_KIND::guess);
    FRAME_PROGRAM program(frame);
    return rule_of_program(program, address, pc);
}

}  // namespace

FRAME_RULE compute_rule(std::uint64_t pc, bool exact) {
    const std::uint64_t address = exact ? pc : pc - 1;
    if (startup_module_at(address) == nullptr) return compute_rule_anew(address, pc);
    const KEPT_PROGRAMS::SCOPE kept;
    if (!kept.is_open()) return compute_rule_anew(address, pc);
    FRAME_PROGRAM* program = kept.program_for(address);
    return program != nullptr ? rule_of_program(*program, address, pc) : rule_of_kind(RULE_KIND::guess);
}

}  // namespace unwind
