#include "platform/unwind/frame_program.h"

#include <dwarf.h>

namespace unwind {

namespace {

// Of an instruction that holds its operand in its lower bits.
constexpr std::uint8_t OPERAND_MASK = 0x3f;

}  // namespace

void FRAME_PROGRAM::start(const CALL_FRAME& frame) {
    frame_ = frame;
    reached_ = location_ = frame.function_begin;
    common_ = DWARF_READER(frame.common_program);
    function_ = DWARF_READER(frame.function_program);
    in_common_ = true;
    failed_ = frame.return_address_register != RETURN_ADDRESS;
    depth_ = 0;
    row_ = initial_ = {};
}

bool FRAME_PROGRAM::run_to(std::uint64_t address) {
    reached_ = address;
    if (failed_) return false;
    if (in_common_) {
        failed_ = !run(&common_);
        if (failed_ || !common_.at_end()) return !failed_;
        in_common_ = false;
        initial_ = row_;
    }
    failed_ = !run(&function_);
    return !failed_;
}

bool FRAME_PROGRAM::run(DWARF_READER* from) {
    DWARF_READER reader = *from;
    while (!reader.at_end() && location_ <= reached_) {
        if (!execute(&reader) || reader.failed()) return false;
    }
    *from = reader;
    return true;
}

inline bool FRAME_PROGRAM::execute(DWARF_READER* reader) {
    const auto operation = reader->read<std::uint8_t>();
    const std::uint8_t operand = operation & OPERAND_MASK;
    switch (operation & ~OPERAND_MASK) {
        case DW_CFA_advance_loc:
            return advance(operand);
        case DW_CFA_offset:
            return set(operand, RECOVERY::saved_at_offset, scaled(reader->read_uleb()));
        case DW_CFA_restore:
            return restore(operand);
        default:
            return move(operation, reader) || define_cfa(operation, reader) || recover(operation, reader);
    }
}

// Operations on the place in the function and on whole rows, and those that mean nothing here.
inline bool FRAME_PROGRAM::move(std::uint8_t operation, DWARF_READER* reader) {
    switch (operation) {
        case DW_CFA_nop:
            return true;
        case DW_CFA_GNU_args_size:
            reader->read_uleb();
            return true;
        case DW_CFA_set_loc:
            location_ = reader->read_encoded(frame_.address_encoding);
            return true;
        case DW_CFA_advance_loc1:
            return advance(reader->read<std::uint8_t>());
        case DW_CFA_advance_loc2:
            return advance(reader->read<std::uint16_t>());
        case DW_CFA_advance_loc4:
            return advance(reader->read<std::uint32_t>());
        default:
            return false;
    }
}

inline bool FRAME_PROGRAM::define_cfa(std::uint8_t operation, DWARF_READER* reader) {
    switch (operation) {
        case DW_CFA_def_cfa: {
            const std::uint64_t number = reader->read_uleb();
            return set_cfa(number, static_cast<std::int64_t>(reader->read_uleb()));
        }
        case DW_CFA_def_cfa_sf: {
            const std::uint64_t number = reader->read_uleb();
            return set_cfa(number, scaled(reader->read_sleb()));
        }
        case DW_CFA_def_cfa_register:
            return set_cfa(reader->read_uleb(), row_.cfa_offset);
        case DW_CFA_def_cfa_offset:
            return set_cfa(row_.cfa_register, static_cast<std::int64_t>(reader->read_uleb()));
        case DW_CFA_def_cfa_offset_sf:
            return set_cfa(row_.cfa_register, scaled(reader->read_sleb()));
        case DW_CFA_def_cfa_expression:
            row_.cfa_expression = reader->read_block();
            return true;
        default:
            return false;
    }
}

inline bool FRAME_PROGRAM::recover(std::uint8_t operation, DWARF_READER* reader) {
    if (operation == DW_CFA_remember_state) return remember_state();
    if (operation == DW_CFA_restore_state) return restore_state();
    const std::uint64_t number = reader->read_uleb();
    switch (operation) {
        case DW_CFA_restore_extended:
            return restore(number);
        case DW_CFA_undefined:
            return set(number, RECOVERY::undefined, 0);
        case DW_CFA_same_value:
            return set(number, RECOVERY::unchanged, 0);
        case DW_CFA_register:
            return set(number, RECOVERY::in_register, static_cast<std::int64_t>(reader->read_uleb()));
        case DW_CFA_offset_extended:
            return set(number, RECOVERY::saved_at_offset, scaled(reader->read_uleb()));
        case DW_CFA_offset_extended_sf:
            return set(number, RECOVERY::saved_at_offset, scaled(reader->read_sleb()));
        case DW_CFA_val_offset:
            return set(number, RECOVERY::is_offset, scaled(reader->read_uleb()));
        case DW_CFA_val_offset_sf:
            return set(number, RECOVERY::is_offset, scaled(reader->read_sleb()));
        case DW_CFA_expression:
            return set_expression(number, RECOVERY::saved_at_expression, reader);
        case DW_CFA_val_expression:
            return set_expression(number, RECOVERY::is_expression, reader);
        default:
            return false;
    }
}

inline bool FRAME_PROGRAM::advance(std::uint64_t distance) {
    location_ += distance * frame_.code_factor;
    return true;
}

// A program that nobody wrote may go beyond the numbers.
inline std::int64_t FRAME_PROGRAM::scaled(std::uint64_t number) const {
    return static_cast<std::int64_t>(number * static_cast<std::uint64_t>(frame_.data_factor));
}
inline bool FRAME_PROGRAM::set_cfa(std::uint64_t number, std::int64_t offset) {
    row_.cfa_expression = {};
    row_.cfa_register = number;
    row_.cfa_offset = offset;
    return true;
}

// Registers that are not kept (vector registers) are passed over.
inline bool FRAME_PROGRAM::set(std::uint64_t number, RECOVERY recovery, std::int64_t value) {
    if (number >= REGISTERS) return true;
    row_.recovery[number] = recovery;
    row_.value[number] = value;
    return true;
}

inline bool FRAME_PROGRAM::set_expression(std::uint64_t number, RECOVERY recovery, DWARF_READER* reader) {
    const auto place = reinterpret_cast<std::int64_t>(reader->position());
    reader->read_block();
    return set(number, recovery, place);
}

inline bool FRAME_PROGRAM::restore(std::uint64_t number) {
    if (number >= REGISTERS) return true;
    return set(number, initial_.recovery[number], initial_.value[number]);
}

inline bool FRAME_PROGRAM::remember_state() {
    if (depth_ == DEEPEST_STATE) return false;
    remembered_[depth_++] = row_;
    return true;
}

inline bool FRAME_PROGRAM::restore_state() {
    if (depth_ == 0) return false;
    row_ = remembered_[--depth_];
    return true;
}

}  // namespace unwind
