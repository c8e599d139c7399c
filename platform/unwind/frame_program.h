// FRAME_PROGRAM: the call frame information of one function, run from instruction to instruction.
#pragma once

#include <cstdint>

#include "platform/unwind/call_frame.h"
#include "platform/unwind/frame_row.h"

namespace unwind {

class FRAME_PROGRAM {
  public:
    FRAME_PROGRAM() = default;
    explicit FRAME_PROGRAM(const CALL_FRAME& frame) { start(frame); }

    void start(const CALL_FRAME& frame);
    const CALL_FRAME& frame() const { return frame_; }

    // Whether an address of the function lies where the program can go on to: behind those that it came to.
    bool lies_ahead(std::uint64_t address) const {
        return address >= reached_ && address < frame_.function_end;
    }

    // Goes on to an address that lies ahead. False when the program is malformed or holds an instruction that
    // is not known; then the row means nothing.
    bool run_to(std::uint64_t address);
    const FRAME_ROW& row() const { return row_; }

  private:
    static constexpr int DEEPEST_STATE = 4;

    bool run(DWARF_READER* reader);
    bool execute(DWARF_READER* reader);
    bool move(std::uint8_t operation, DWARF_READER* reader);
    bool define_cfa(std::uint8_t operation, DWARF_READER* reader);
    bool recover(std::uint8_t operation, DWARF_READER* reader);
    bool advance(std::uint64_t distance);
    std::int64_t scaled(std::uint64_t number) const;
    std::int64_t scaled(std::int64_t number) const { return scaled(static_cast<std::uint64_t>(number)); }
    bool set_cfa(std::uint64_t number, std::int64_t offset);
    bool set(std::uint64_t number, RECOVERY recovery, std::int64_t value);
    bool set_expression(std::uint64_t number, RECOVERY recovery, DWARF_READER* reader);
    bool restore(std::uint64_t number);
    bool remember_state();
    bool restore_state();

    CALL_FRAME frame_;
    std::uint64_t reached_ = 0;
    std::uint64_t location_ = 0;  // where the row ends
    DWARF_READER common_{BYTES{}};
    DWARF_READER function_{BYTES{}};
    bool in_common_ = false;
    bool failed_ = false;
    int depth_ = 0;
    FRAME_ROW row_;
    FRAME_ROW initial_;  // at the start of the function
    FRAME_ROW remembered_[DEEPEST_STATE];
};

}  // namespace unwind
