#include "platform/unwind/dwarf_reader.h"

namespace unwind {

namespace {

constexpr std::uint8_t FORMAT_MASK = 0x0f;
constexpr std::uint8_t RELATIVE_MASK = 0x70;
constexpr std::uint8_t PC_RELATIVE = 0x10;

}  // namespace

std::uint64_t DWARF_READER::read_encoded_number(std::uint8_t encoding) {
    switch (encoding & FORMAT_MASK) {
        case 0x00:
        case 0x04:
        case 0x0c:
            return read<std::uint64_t>();
        case 0x01:
            return read_uleb();
        case 0x02:
            return read<std::uint16_t>();
        case 0x03:
            return read<std::uint32_t>();
        case 0x09:
            return static_cast<std::uint64_t>(read_sleb());
        case 0x0a:
            return static_cast<std::uint64_t>(std::int64_t{read<std::int16_t>()});
        case 0x0b:
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
        case 0:
            return number;
        case PC_RELATIVE:
            return here + number;
        default:
            fail();
            return 0;
    }
}

}  // namespace unwind
