#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "platform/unwind/frame_expression.h"
#include "platform/unwind/frame_program.h"
#include "tests/fuzz/targets.h"

namespace fuzz {

namespace {

using namespace unwind;

// The first bytes say how the program is to be read: factors, encoding, how much of it is common, and where
// in the function the address lies. The last is the program, in a block of its own so that a step beyond it
// shows.
constexpr std::size_t head_size = 6;
constexpr std::uint64_t function_begin = 0x1000;

void evaluate_rules(const FRAME_ROW& row) {
    SYMBOLIC_SOURCE source(function_begin);
    if (row.cfa_expression.begin != row.cfa_expression.end) evaluate(row.cfa_expression, &source, {});
    const EXPRESSION_VALUE cfa{EXPRESSION_VALUE::BASE::sp, 0, 8};
    for (int i = 0; i < REGISTERS; ++i) {
        const bool has_expression =
            row.recovery[i] == RECOVERY::saved_at_expression || row.recovery[i] == RECOVERY::is_expression;
        if (has_expression) evaluate(expression_at(row.value[i]), &source, cfa);
    }
}

bool are_equal(const FRAME_ROW& a, const FRAME_ROW& b) {
    return a.cfa_expression.begin == b.cfa_expression.begin && a.cfa_offset == b.cfa_offset &&
           a.cfa_register == b.cfa_register && std::ranges::equal(a.value, b.value) &&
           std::ranges::equal(a.recovery, b.recovery);
}

// In one go, and with a halt on the way there.
void run(const CALL_FRAME& frame, std::uint64_t distance) {
    FRAME_PROGRAM whole(frame);
    FRAME_PROGRAM halted(frame);
    halted.run_to(function_begin + distance / 2);
    const bool is_good = whole.run_to(function_begin + distance);
    if (halted.run_to(function_begin + distance) != is_good) std::abort();
    if (!is_good) return;
    if (!are_equal(whole.row(), halted.row())) std::abort();
    evaluate_rules(whole.row());
}

void take(Bytes bytes) {
    if (bytes.size() < head_size) return;
    const std::size_t size = bytes.size() - head_size;
    const auto program = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    std::copy(bytes.begin() + head_size, bytes.end(), program.get());
    CALL_FRAME frame;
    frame.function_begin = function_begin;
    frame.function_end = function_begin + 0x10000;
    frame.code_factor = bytes[0];
    frame.data_factor = static_cast<std::int8_t>(bytes[1]);
    frame.return_address_register = bytes[5] == 0 ? std::uint64_t{RETURN_ADDRESS} : bytes[5];
    frame.address_encoding = bytes[2];
    const std::size_t common = std::min<std::size_t>(bytes[3], size);
    frame.common_program = {program.get(), program.get() + common};
    frame.function_program = {program.get() + common, program.get() + size};
    run(frame, bytes[4]);
    SYMBOLIC_SOURCE source(function_begin);
    evaluate({program.get(), program.get() + size}, &source, {});
}

// What compilers write: a push of bp, remembered states, a procedure linkage table, registers at the CFA's
// distance.
std::vector<std::string> seeds() {
    const std::string head = {1, static_cast<char>(-8), 0x1b, 5, 0x20, 0};
    const std::string common = {0x0c, 7, 8, static_cast<char>(0x90), 1};
    const std::string bodies[] = {
        {0x41, 0x0e, 16, static_cast<char>(0x86), 2, 0x43, 0x0d, 6, 0x0a, 0x02, 9, 0x0c, 7, 8, 0x0b},
        {0x0f, 11, 0x77, 8, static_cast<char>(0x80), 0, 0x3f, 0x1a, 0x3b, 0x2a, 0x33, 0x24, 0x22},
        {0x10, 6, 3, 0x76, 0x70, 0x06, 0x16, 3, 2, 0x77, 8, 0x2e, 16, 0x11, 12, 0x7e, 0x14, 13, 3},
        {0x04, 1, 0, 0, 0, 0x05, 15, 4, 0x06, 15, 0x07, 16, 0x08, 3, 0x09, 3, 6, 0x12, 7, 1, 0x13, 2}};
    std::vector<std::string> all;
    for (const std::string& body : bodies) all.push_back(head + common + body);
    return all;
}

}  // namespace

const Target frame_programs = {"frame_programs", take, seeds};

}  // namespace fuzz
