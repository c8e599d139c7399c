#include "platform/unwind/frame_expression.h"

#include "platform/unwind/frame_row.h"

namespace unwind {

namespace {

using BASE = EXPRESSION_VALUE::BASE;
using RESULT = std::optional<EXPRESSION_VALUE>;

enum OPERATION : std::uint8_t {
    DEREFERENCE = 0x06,
    CONSTANT_1_UNSIGNED = 0x08,
    CONSTANT_1_SIGNED = 0x09,
    CONSTANT_2_UNSIGNED = 0x0a,
    CONSTANT_2_SIGNED = 0x0b,
    CONSTANT_4_UNSIGNED = 0x0c,
    CONSTANT_4_SIGNED = 0x0d,
    CONSTANT_8_UNSIGNED = 0x0e,
    CONSTANT_8_SIGNED = 0x0f,
    CONSTANT_UNSIGNED = 0x10,
    CONSTANT_SIGNED = 0x11,
    DUPLICATE = 0x12,
    DROP = 0x13,
    SWAP = 0x16,
    AND = 0x1a,
    MINUS = 0x1c,
    OR = 0x21,
    PLUS = 0x22,
    PLUS_CONSTANT = 0x23,
    SHIFT_LEFT = 0x24,
    SHIFT_RIGHT = 0x25,
    EQUAL = 0x29,
    GREATER_OR_EQUAL = 0x2a,
    GREATER = 0x2b,
    LESS_OR_EQUAL = 0x2c,
    LESS = 0x2d,
    NOT_EQUAL = 0x2e,
    LITERAL_0 = 0x30,
    LITERAL_31 = 0x4f,
    REGISTER_0 = 0x70,
    REGISTER_31 = 0x8f
};

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
        case AND:
            return number(left & right);
        case OR:
            return number(left | right);
        case SHIFT_LEFT:
            return number(shift < 64 ? static_cast<std::int64_t>(bits << shift) : 0);
        case SHIFT_RIGHT:
            return number(shift < 64 ? static_cast<std::int64_t>(bits >> shift) : 0);
        case EQUAL:
            return number(left == right);
        case GREATER_OR_EQUAL:
            return number(left >= right);
        case GREATER:
            return number(left > right);
        case LESS_OR_EQUAL:
            return number(left <= right);
        case LESS:
            return number(left < right);
        case NOT_EQUAL:
            return number(left != right);
        default:
            return std::nullopt;
    }
}

RESULT on_two(std::uint8_t operation, const EXPRESSION_VALUE& left, const EXPRESSION_VALUE& right) {
    if (operation == PLUS && right.is_number()) return plus(left, right.number);
    if (operation == PLUS && left.is_number()) return plus(right, left.number);
    if (operation == MINUS && right.is_number()) return plus(plus(left, ~right.number), 1);
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
        if (operation >= LITERAL_0 && operation <= LITERAL_31) return push(number(operation - LITERAL_0));
        if (operation >= REGISTER_0 && operation <= REGISTER_31) {
            const RESULT value = source_->read_register(operation - REGISTER_0);
            return value && push(plus(*value, reader_.read_sleb()));
        }
        if (operation >= CONSTANT_1_UNSIGNED && operation <= CONSTANT_SIGNED) {
            return push(number(read_constant(operation)));
        }
        if (operation <= PLUS_CONSTANT && rearrange(operation)) return true;
        const RESULT right = pop();
        const RESULT left = pop();
        return left && right && push(on_two(operation, *left, *right));
    }

    std::int64_t read_constant(std::uint8_t operation) {
        switch (operation) {
            case CONSTANT_1_UNSIGNED:
                return reader_.read<std::uint8_t>();
            case CONSTANT_1_SIGNED:
                return reader_.read<std::int8_t>();
            case CONSTANT_2_UNSIGNED:
                return reader_.read<std::uint16_t>();
            case CONSTANT_2_SIGNED:
                return reader_.read<std::int16_t>();
            case CONSTANT_4_UNSIGNED:
                return reader_.read<std::uint32_t>();
            case CONSTANT_4_SIGNED:
                return reader_.read<std::int32_t>();
            case CONSTANT_UNSIGNED:
                return static_cast<std::int64_t>(reader_.read_uleb());
            case CONSTANT_SIGNED:
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
            case DUPLICATE:
                return push(EXPRESSION_VALUE(top));
            case DROP:
                --depth_;
                return true;
            case SWAP:
                if (depth_ < 2) return false;
                std::swap(top, stack_[depth_ - 2]);
                return true;
            case PLUS_CONSTANT:
                top = plus(top, static_cast<std::int64_t>(reader_.read_uleb()));
                return true;
            case DEREFERENCE: {
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
