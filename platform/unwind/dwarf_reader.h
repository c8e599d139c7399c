// Reads the number formats of call frame information out of mapped memory. Reading past the end gives
// zeroes and sets failed, so that callers test once.
#pragma once

#include <cstdint>
#include <cstring>

namespace unwind {

struct BYTES {
    const std::uint8_t* begin = nullptr;
    const std::uint8_t* end = nullptr;
};

class DWARF_READER {
  public:
    constexpr explicit DWARF_READER(BYTES bytes) : at_(bytes.begin), end_(bytes.end) {}

    bool at_end() const { return at_ >= end_; }
    bool failed() const { return failed_; }
    const std::uint8_t* position() const { return at_; }

    template <typename NUMBER>
    NUMBER read() {
        NUMBER number = 0;
        if (end_ - at_ < static_cast<std::ptrdiff_t>(sizeof number)) {
            fail();
        } else {
            std::memcpy(&number, at_, sizeof number);
            at_ += sizeof number;
        }
        return number;
    }

    std::uint64_t read_uleb() {
        constexpr std::uint8_t FIRST_WITH_MORE = 0x80;
        if (at_ < end_ && *at_ < FIRST_WITH_MORE) [[likely]]
            return *at_++;
        std::uint64_t value = 0;
        unsigned shift = 0;
        read_leb(&value, &shift);
        return value;
    }

    std::int64_t read_sleb() {
        std::uint64_t value = 0;
        unsigned shift = 0;
        const std::uint8_t last = read_leb(&value, &shift);
        if (shift < 64 && (last & 0x40) != 0) value |= ~std::uint64_t{0} << shift;
        return static_cast<std::int64_t>(value);
    }

    // A block with its length in front.
    BYTES read_block() { return skip(read_uleb()); }
    BYTES rest() { return skip(static_cast<std::uint64_t>(end_ - at_)); }

    BYTES skip(std::uint64_t length) {
        const std::uint8_t* from = at_;
        if (length > static_cast<std::uint64_t>(end_ - at_)) {
            fail();
        } else {
            at_ += length;
        }
        return {from, at_};
    }

    // A code address in one of the encodings that .eh_frame declares.
    std::uint64_t read_encoded(std::uint8_t encoding);
    // Only the number, without the place that it counts from.
    std::uint64_t read_encoded_number(std::uint8_t encoding);

  private:
    void fail() {
        at_ = end_;
        failed_ = true;
    }

    std::uint8_t read_leb(std::uint64_t* value, unsigned* shift) {
        std::uint8_t byte = 0;
        do {
            byte = read<std::uint8_t>();
            if (*shift < 64) *value |= static_cast<std::uint64_t>(byte & 0x7f) << *shift;
            *shift += 7;
        } while ((byte & 0x80) != 0);
        return byte;
    }

    const std::uint8_t* at_;
    const std::uint8_t* end_;
    bool failed_ = false;
};

}  // namespace unwind
