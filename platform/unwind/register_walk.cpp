#include "platform/unwind/register_walk.h"

#include <ucontext.h>

#include <cstring>

#include "platform/unwind/frame_expression.h"
#include "platform/unwind/frame_program.h"
#include "platform/unwind/stack_memory.h"

namespace unwind {

namespace {

constexpr int MOST_STEPS = 512;
constexpr unsigned CALLEE_SAVED = 1U << RBX | 1U << RBP | 1U << RSP | 0xfU << 12 | 1U << RETURN_ADDRESS;

// Where the kernel keeps register number i of DWARF in a ucontext.
constexpr int IN_UCONTEXT[REGISTERS] = {REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI,
                                        REG_RBP, REG_RSP, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                        REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};

// All of a frame's registers as far as they are known.
class REGISTERS_OF_FRAME final : public EXPRESSION_SOURCE {
  public:
    // Starts with the registers of the function that this is inlined into.
    __attribute__((always_inline)) void capture() {
        asm volatile(
            "movq %%rbx, 24(%0)\n\tmovq %%rbp, 48(%0)\n\tmovq %%rsp, 56(%0)\n\t"
            "movq %%r12, 96(%0)\n\tmovq %%r13, 104(%0)\n\tmovq %%r14, 112(%0)\n\tmovq %%r15, 120(%0)\n\t"
            "leaq 0f(%%rip), %%rax\n\tmovq %%rax, 128(%0)\n0:"
            :
            : "r"(value_)
            : "rax", "memory");
        known_ = CALLEE_SAVED;
        exact_ = true;
    }

    bool is_at(const STACK_WALK_START& frame) const {
        return value_[RETURN_ADDRESS] == frame.pc && value_[RSP] == frame.sp;
    }
    STACK_WALK_START as_frame() const { return {value_[RETURN_ADDRESS], value_[RSP], value_[RBP]}; }

    bool step() {
        const std::uint64_t address = exact_ ? value_[RETURN_ADDRESS] : value_[RETURN_ADDRESS] - 1;
        CALL_FRAME frame;
        if (!find_call_frame(address, &frame)) return false;
        if (frame.is_signal_frame) return leave_signal_frame();
        FRAME_PROGRAM program(frame);
        return program.run_to(address) && apply(program.row());
    }

    std::optional<EXPRESSION_VALUE> read_register(std::uint64_t number) override {
        if (number >= REGISTERS || (known_ >> number & 1) == 0) return std::nullopt;
        return EXPRESSION_VALUE{.number = static_cast<std::int64_t>(value_[number])};
    }

    std::optional<EXPRESSION_VALUE> dereference(const EXPRESSION_VALUE& place) override {
        std::uint64_t value = 0;
        if (!load(static_cast<std::uint64_t>(place.number), &value)) return std::nullopt;
        return EXPRESSION_VALUE{.number = static_cast<std::int64_t>(value)};
    }

  private:
    bool leave_signal_frame() {
        const std::uint64_t context = value_[RSP];
        for (unsigned i = 0; i < REGISTERS; ++i) {
            const std::uint64_t place = offsetof(ucontext_t, uc_mcontext.gregs) + 8U * IN_UCONTEXT[i];
            if (!load(context + place, &value_[i])) return false;
        }
        known_ = (1U << REGISTERS) - 1;
        exact_ = true;
        return true;
    }

    bool apply(const FRAME_ROW& row) {
        const std::optional<EXPRESSION_VALUE> cfa = cfa_of(row);
        if (!cfa || row.recovery[RETURN_ADDRESS] == RECOVERY::undefined) return false;
        REGISTERS_OF_FRAME caller;
        caller.value_[RSP] = static_cast<std::uint64_t>(cfa->number);
        caller.known_ = 1U << RSP;
        for (unsigned i = 0; i < REGISTERS; ++i) {
            if (i == RSP && row.recovery[i] == RECOVERY::unchanged) continue;
            const std::optional<EXPRESSION_VALUE> value = recover(row, i, *cfa);
            if (!value) continue;
            caller.value_[i] = static_cast<std::uint64_t>(value->number);
            caller.known_ |= 1U << i;
        }
        if ((caller.known_ >> RETURN_ADDRESS & 1) == 0) return false;
        *this = caller;
        return true;
    }

    std::optional<EXPRESSION_VALUE> cfa_of(const FRAME_ROW& row) {
        if (row.cfa_expression.begin != nullptr) return evaluate(row.cfa_expression, this, std::nullopt);
        return shifted(read_register(row.cfa_register), row.cfa_offset);
    }

    std::optional<EXPRESSION_VALUE> recover(const FRAME_ROW& row, unsigned number,
                                            const EXPRESSION_VALUE& cfa) {
        const std::int64_t value = row.value[number];
        switch (row.recovery[number]) {
            case RECOVERY::unchanged:
                if ((CALLEE_SAVED >> number & 1) == 0 || number == RETURN_ADDRESS) return std::nullopt;
                return read_register(number);
            case RECOVERY::saved_at_offset:
                return dereference(*shifted(cfa, value));
            case RECOVERY::is_offset:
                return shifted(cfa, value);
            case RECOVERY::in_register:
                return read_register(static_cast<std::uint64_t>(value));
            case RECOVERY::saved_at_expression: {
                const std::optional<EXPRESSION_VALUE> place = evaluate(expression_at(value), this, cfa);
                return place ? dereference(*place) : std::nullopt;
            }
            case RECOVERY::is_expression:
                return evaluate(expression_at(value), this, cfa);
            case RECOVERY::undefined:
                break;
        }
        return std::nullopt;
    }

    static std::optional<EXPRESSION_VALUE> shifted(std::optional<EXPRESSION_VALUE> value,
                                                   std::int64_t distance) {
        if (value) value->number += distance;
        return value;
    }

    static bool load(std::uint64_t address, std::uint64_t* value) {
        if (!page_is_readable(address) || !page_is_readable(address + sizeof *value - 1)) return false;
        std::memcpy(value, reinterpret_cast<const void*>(address), sizeof *value);
        return true;
    }

    std::uint64_t value_[REGISTERS] = {};
    unsigned known_ = 0;
    bool exact_ = false;
};

}  // namespace

__attribute__((noinline)) bool step_by_all_registers(STACK_WALK_START* frame) {
    REGISTERS_OF_FRAME registers;
    registers.capture();
    for (int i = 0; i < MOST_STEPS; ++i) {
        const bool arrived = registers.is_at(*frame);
        if (!registers.step()) return false;
        if (!arrived) continue;
        *frame = registers.as_frame();
        return true;
    }
    return false;
}

}  // namespace unwind
