// Finds the call frame information of a function.
#pragma once

#include <cstdint>

#include "platform/unwind/dwarf_reader.h"

namespace unwind {

struct CALL_FRAME {
    std::uint64_t function_begin = 0;
    std::uint64_t function_end = 0;
    BYTES common_program;    // what holds at the start of every function of this kind
    BYTES function_program;  // how it changes from instruction to instruction
    std::uint64_t code_factor = 1;
    std::int64_t data_factor = 1;
    std::uint64_t return_address_register = 0;
    std::uint8_t address_encoding = 0;
    bool is_signal_frame = false;
    bool in_loader = false;
};

// Fills *frame for the function that holds address; false when no loaded module describes it. Takes no lock.
bool find_call_frame(std::uint64_t address, CALL_FRAME* frame);

}  // namespace unwind
