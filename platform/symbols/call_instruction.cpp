#include "platform/symbols/call_instruction.h"

#include <algorithm>
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

using CODE = std::array<unsigned char, longest_call>;

bool ends_with_call(const CODE& code, std::uint64_t address, std::uint64_t image_begin,
                    std::uint64_t image_end) {
    const unsigned char* const end = code.data() + code.size();
    if (is_direct_call(end - direct_call, address, image_begin, image_end)) return true;
    for (std::size_t length = 2; length <= longest_call; ++length)
        if (indirect_call_length(end - length) == length) return true;
    return false;
}

// What cannot be read stays zero, which is no call.
void read_code_before(std::span<const std::uint64_t> addresses, std::span<CODE> codes) {
    std::array<OWN_PIECE, most_own_pieces> pieces;
    for (std::size_t i = 0; i < addresses.size(); ++i)
        pieces[i] = {addresses[i] - longest_call, longest_call};
    if (read_own_pieces({pieces.data(), addresses.size()}, codes.data())) return;
    for (std::size_t i = 0; i < addresses.size(); ++i)
        if (!read_own_memory(pieces[i].address, codes[i].data(), longest_call)) codes[i] = {};
}

}  // namespace

std::vector<bool> are_behind_calls(std::span<const std::uint64_t> addresses, std::uint64_t image_begin,
                                   std::uint64_t image_end) {
    std::vector<bool> are_calls;
    are_calls.reserve(addresses.size());
    while (!addresses.empty()) {
        const auto some = addresses.first(std::min(addresses.size(), most_own_pieces));
        std::array<CODE, most_own_pieces> codes;
        read_code_before(some, codes);
        for (std::size_t i = 0; i < some.size(); ++i)
            are_calls.push_back(ends_with_call(codes[i], some[i], image_begin, image_end));
        addresses = addresses.subspan(some.size());
    }
    return are_calls;
}

}  // namespace symbols
