#include "platform/unwind/frame_expression.h"

#include <dwarf.h>

#include "platform/unwind/frame_row.h"

namespace unwind {

namespace {

using BASE = EXPRESSION_VALUE::BASE;
using RESULT = std::optional<EXPRESSION_VALUE>;

EXPRESSION_VALUE number(std::int64_t value) {
    return {BASE::number, 0, value};
}

EXPRESSION_VALUE plus(EXPRESSION_VALUE value, std::int64_t addend) {
    value.number = static_cast<std::int64_t>(static_cast<std::uint64_t>(value.number) +
                                             static_cast<std::uint64_t>(addend));
    return value;
}

RESULT on_numbers(std::uint8_t operation, std::int64_t left, std::int64_t right) {
    const auto bits = static_cast<std::uint64_t>(left);
    const auto shift = static_cast<std::uint64_t>(right);
    switch (operation) {
        case DW_OP_and:
            return number(left & right);
        case DW_OP_or:
            return number(left | right);
        case DW_OP_shl:
            return number(shift < 64 ? static_cast<std::int64_t>(bits << shift) : 0);
        case DW_OP_shr:
            return number(shift < 64 ? static_cast<std::int64_t>(bits >> shift) : 0);
        case DW_OP_eq:
            return number(left == right);
        case DW_OP_ge:
            return number(left >= right);
        case DW_OP_gt:
            return number(left > right);
        case DW_OP_le:
            return number(left <= right);
        case DW_OP_lt:
            return number(left < right);
        case DW_OP_ne:
            return number(left != right);
        default:
            return std::nullopt;
    }
}

RESULT on_two(std::uint8_t operation, const EXPRESSION_VALUE& left, const EXPRESSION_VALUE& right) {
    if (operation == DW_OP_plus && right.is_number()) return plus(left, right.number);
    if (operation == DW_OP_plus && left.is_number()) return plus(right, left.number);
    if (operation == DW_OP_minus && right.is_number()) return plus(plus(left, ~right.number), 1);
    if (left.is_number() && right.is_number()) return on_numbers(operation, left.number, right.number);
    return std::nullopt;
}

class EXPRESSION_MACHINE {
  public:
    EXPRESSION_MACHINE(BYTES block, EXPRESSION_SOURCE* source) : reader_(block), source_(source) {}

    RESULT run(RESULT first) {
        if (first) push(first);
        while (!reader_.at_end()) {
            if (!execute(reader_.read<std::uint8_t>()) || reader_.failed()) return std::nullopt;
        }
        return pop();
    }

  private:
    static constexpr int DEEPEST = 16;

    bool execute(std::uint8_t operation) {
        if (operation >= DW_OP_lit0 && operation <= DW_OP_lit31) return push(number(operation - DW_OP_lit0));
        if (operation >= DW_OP_breg0 && operation <= DW_OP_breg31) {
            const RESULT value = source_->read_register(operation - DW_OP_breg0);
            return value && push(plus(*value, reader_.read_sleb()));
        }
        if (operation >= DW_OP_const1u && operation <= DW_OP_consts) {
            return push(number(read_constant(operation)));
        }
        if (operation <= DW_OP_plus_uconst && rearrange(operation)) return true;
        const RESULT right = pop();
        const RESULT left = pop();
        return left && right && push(on_two(operation, *left, *right));
    }

    std::int64_t read_constant(std::uint8_t operation) {
        switch (operation) {
            case DW_OP_const1u:
                return reader_.read<std::uint8_t>();
            case DW_OP_const1s:
                return reader_.read<std::int8_t>();
            case DW_OP_const2u:
                return reader_.read<std::uint16_t>();
            case DW_OP_const2s:
                return reader_.read<std::int16_t>();
            case DW_OP_const4u:
                return reader_.read<std::uint32_t>();
            case DW_OP_const4s:
                return reader_.read<std::int32_t>();
            case DW_OP_constu:
                return static_cast<std::int64_t>(reader_.read_uleb());
            case DW_OP_consts:
                return reader_.read_sleb();
            default:
                return reader_.read<std::int64_t>();
        }
    }

    // Operations on the top of the stack; false for every other one, with the stack as it was.
    bool rearrange(std::uint8_t operation) {
        if (depth_ == 0) return false;
        EXPRESSION_VALUE& top = stack_[depth_ - 1];
        switch (operation) {
            case DW_OP_dup:
                return push(EXPRESSION_VALUE(top));
            case DW_OP_drop:
                --depth_;
                return true;
            case DW_OP_swap:
                if (depth_ < 2) return false;
                std::swap(top, stack_[depth_ - 2]);
                return true;
            case DW_OP_plus_uconst:
                top = plus(top, static_cast<std::int64_t>(reader_.read_uleb()));
                return true;
            case DW_OP_deref: {
                const RESULT value = source_->dereference(top);
                if (value) top = *value;
                return value.has_value();
            }
            default:
                return false;
        }
    }

    bool push(RESULT value) {
        if (!value || depth_ == DEEPEST) return false;
        stack_[depth_++] = *value;
        return true;
    }

    RESULT pop() {
        if (depth_ == 0) return std::nullopt;
        return stack_[--depth_];
    }

    DWARF_READER reader_;
    EXPRESSION_SOURCE* source_;
    EXPRESSION_VALUE stack_[DEEPEST];
    int depth_ = 0;
};

}  // namespace

RESULT SYMBOLIC_SOURCE::read_register(std::uint64_t number_of_register) {
    switch (number_of_register) {
        case RBP:
            return EXPRESSION_VALUE{BASE::bp, 0, 0};
        case RSP:
            return EXPRESSION_VALUE{BASE::sp, 0, 0};
        case RETURN_ADDRESS:
            return number(static_cast<std::int64_t>(pc_));
        default:
            return std::nullopt;
    }
}

RESULT SYMBOLIC_SOURCE::dereference(const EXPRESSION_VALUE& place) {
    if (!place.is_register()) return std::nullopt;
    return EXPRESSION_VALUE{place.base == BASE::bp ? BASE::at_bp : BASE::at_sp, place.number, 0};
}

RESULT evaluate(BYTES block, EXPRESSION_SOURCE* source, RESULT first) {
    return EXPRESSION_MACHINE(block, source).run(first);
}

}  // namespace unwind
