#include "platform/symbols/call_instruction.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "platform/symbols/own_memory.h"

namespace symbols {
namespace {

constexpr std::size_t longest_call = 7;
constexpr std::size_t direct_call = 5;

// The five bytes could be anything; a call stays in its module, where the table of stubs leads out of it.
bool is_direct_call(const unsigned char* code, std::uint64_t end, std::uint64_t image_begin,
                    std::uint64_t image_end) {
    if (code[0] != 0xE8) return false;
    std::int32_t distance = 0;
    std::memcpy(&distance, code + 1, sizeof distance);
    const std::uint64_t target = end + static_cast<std::uint64_t>(static_cast<std::int64_t>(distance));
    return target >= image_begin && target < image_end;
}

// The length of a call by register or memory, whose operand the byte behind the code describes; 0 when it is
// none.
std::size_t indirect_call_length(const unsigned char* code) {
    const unsigned operand = code[1];
    if (code[0] != 0xFF || (operand >> 3 & 7) != 2) return 0;
    const unsigned mode = operand >> 6, base = operand & 7;
    if (mode == 3) return 2;
    const std::size_t scale = base == 4 ? 1 : 0;
    if (mode == 1) return 3 + scale;
    if (mode == 2) return 6 + scale;
    const bool has_distance = base == 5 || (scale != 0 && (code[2] & 7) == 5);
    return 2 + scale + (has_distance ? 4 : 0);
}

}  // namespace

bool is_behind_call(std::uint64_t address, std::uint64_t image_begin, std::uint64_t image_end) {
    std::array<unsigned char, longest_call> code{};
    if (!read_own_memory(address - code.size(), code.data(), code.size())) return false;
    const unsigned char* const end = code.data() + code.size();
    if (is_direct_call(end - direct_call, address, image_begin, image_end)) return true;
    for (std::size_t length = 2; length <= longest_call; ++length)
        if (indirect_call_length(end - length) == length) return true;
    return false;
}

}  // namespace symbols
