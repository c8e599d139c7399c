#include "tests/fuzz/mutations.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace fuzz {

std::string Mutator::mutant_of(const std::vector<std::string>& seeds) {
    std::string bytes = seeds[below(seeds.size())];
    const std::string& other = seeds[below(seeds.size())];
    for (std::size_t changes = 1 + below(8); changes > 0; --changes) change(bytes, other);
    return bytes;
}

void Mutator::change(std::string& bytes, const std::string& other) {
    const std::size_t at = below(bytes.size() + 1);
    const std::size_t length = 1 + below(16);
    switch (below(8)) {
        case 0:
            if (at < bytes.size()) bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
            break;
        case 1:
            bytes.insert(at, length, static_cast<char>(below(256)));
            break;
        case 2:
            bytes.erase(at, length);
            break;
        case 3:
            bytes.insert(at, bytes, below(bytes.size() + 1), 4 * length);
            break;
        case 4:
            bytes.insert(at, other, below(other.size() + 1), 4 * length);
            break;
        case 5:
            bytes.resize(at);
            break;
        case 6:
            put_number(bytes);
            break;
        default:
            put_digits(bytes);
    }
}

// Numbers at the ends of their ranges, where sums overflow and counts do not fit.
void Mutator::put_number(std::string& bytes) {
    constexpr std::uint64_t numbers[] = {
        0,         1, 0x7f, 0x80, 0xff, 0x7fffffff, 0x80000000, 0xffffffff, INT64_MAX, std::uint64_t{1} << 63,
        UINT64_MAX};
    const std::uint64_t number = numbers[below(std::size(numbers))];
    const std::size_t size = std::size_t{1} << below(4);
    const std::size_t at = below(bytes.size() + 1);
    if (bytes.size() < at + size) bytes.resize(at + size);
    std::memcpy(bytes.data() + at, &number, size);
}

void Mutator::put_digits(std::string& bytes) {
    constexpr const char* numbers[] = {"-1",
                                       "0",
                                       "9223372036854775807",
                                       "-9223372036854775808",
                                       "18446744073709551616",
                                       "0xffffffffffffffff",
                                       "\t",
                                       "\n"};
    const auto first = std::find_if(bytes.begin() + static_cast<std::ptrdiff_t>(below(bytes.size() + 1)),
                                    bytes.end(), [](char c) { return c >= '0' && c <= '9'; });
    const auto last = std::find_if(first, bytes.end(), [](char c) { return c < '0' || c > '9'; });
    bytes.replace(first, last, numbers[below(std::size(numbers))]);
}

}  // namespace fuzz
