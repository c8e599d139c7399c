// Evaluates the expressions of call frame information, over known registers or symbolically.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/unwind/dwarf_reader.h"

namespace unwind {

// A number, a register plus a number, or what lies in memory there plus a number.
struct EXPRESSION_VALUE {
    enum class BASE : std::uint8_t { number, bp, sp, at_bp, at_sp };

    BASE base = BASE::number;
    std::int64_t place = 0;   // of at_bp and at_sp: the distance from the register
    std::int64_t number = 0;  // what is added

    bool is_number() const { return base == BASE::number; }
    bool is_register() const { return base == BASE::bp || base == BASE::sp; }
};

// Where the values of an expression come from; nothing means that the expression can't be evaluated.
class EXPRESSION_SOURCE {
  public:
    virtual std::optional<EXPRESSION_VALUE> read_register(std::uint64_t number) = 0;
    virtual std::optional<EXPRESSION_VALUE> dereference(const EXPRESSION_VALUE& place) = 0;

  protected:
    ~EXPRESSION_SOURCE() = default;
};

// Values that are known as far as sp, bp and the program counter go.
class SYMBOLIC_SOURCE final : public EXPRESSION_SOURCE {
  public:
    explicit SYMBOLIC_SOURCE(std::uint64_t pc) : pc_(pc) {}
    std::optional<EXPRESSION_VALUE> read_register(std::uint64_t number) override;
    std::optional<EXPRESSION_VALUE> dereference(const EXPRESSION_VALUE& place) override;

  private:
    std::uint64_t pc_;
};

// The value of the expression in block; first is put on the stack before it starts when given.
std::optional<EXPRESSION_VALUE> evaluate(BYTES block, EXPRESSION_SOURCE* source,
                                         std::optional<EXPRESSION_VALUE> first);

// The block of an expression that a row names by the address of its length. Rows come only from programs
// that were read to the end of the block.
inline BYTES expression_at(std::int64_t place) {
    const auto* begin = reinterpret_cast<const std::uint8_t*>(place);
    constexpr std::size_t LONGEST_LENGTH = 10;
    DWARF_READER length({begin, begin + LONGEST_LENGTH});
    const std::uint64_t size = length.read_uleb();
    return {length.position(), length.position() + size};
}

}  // namespace unwind
