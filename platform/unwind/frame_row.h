// What the call frame information says about one instruction: where the frame is and where its caller's
// registers were saved.
#pragma once

#include <cstdint>

#include "platform/unwind/dwarf_reader.h"

namespace unwind {

// The numbers that DWARF gives the registers of x86-64.
enum REGISTER : std::uint8_t { RBX = 3, RBP = 6, RSP = 7, RETURN_ADDRESS = 16, REGISTERS = 17 };

enum class RECOVERY : std::uint8_t {
    unchanged,            // also: nothing said
    undefined,            // lost; for the return address: the outermost frame
    saved_at_offset,      // [CFA + value]
    is_offset,            // CFA + value
    in_register,          // register number value
    saved_at_expression,  // [expression at value]
    is_expression         // expression at value
};

struct FRAME_ROW {
    BYTES cfa_expression;  // when empty the CFA is cfa_register + cfa_offset
    std::int64_t cfa_offset = 0;
    std::uint64_t cfa_register = 0;
    std::int64_t value[REGISTERS] = {};  // an expression is given by the address of its length
    RECOVERY recovery[REGISTERS] = {};
};

}  // namespace unwind
