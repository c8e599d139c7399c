#include "platform/unwind/dwarf_reader.h"

#include <dwarf.h>

namespace unwind {

namespace {

constexpr std::uint8_t FORMAT_MASK = 0x0f;
constexpr std::uint8_t RELATIVE_MASK = 0x70;

}  // namespace

std::uint64_t DWARF_READER::read_encoded_number(std::uint8_t encoding) {
    switch (encoding & FORMAT_MASK) {
        case DW_EH_PE_absptr:
        case DW_EH_PE_udata8:
        case DW_EH_PE_sdata8:
            return read<std::uint64_t>();
        case DW_EH_PE_uleb128:
            return read_uleb();
        case DW_EH_PE_udata2:
            return read<std::uint16_t>();
        case DW_EH_PE_udata4:
            return read<std::uint32_t>();
        case DW_EH_PE_sleb128:
            return static_cast<std::uint64_t>(read_sleb());
        case DW_EH_PE_sdata2:
            return static_cast<std::uint64_t>(std::int64_t{read<std::int16_t>()});
        case DW_EH_PE_sdata4:
            return static_cast<std::uint64_t>(std::int64_t{read<std::int32_t>()});
        default:
            fail();
            return 0;
    }
}

std::uint64_t DWARF_READER::read_encoded(std::uint8_t encoding) {
    const auto here = reinterpret_cast<std::uint64_t>(at_);
    const std::uint64_t number = read_encoded_number(encoding);
    switch (encoding & RELATIVE_MASK) {
        case DW_EH_PE_absptr:
            return number;
        case DW_EH_PE_pcrel:
            return here + number;
        default:
            fail();
            return 0;
    }
}

}  // namespace unwind
