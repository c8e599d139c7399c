// Where formatted characters gather on their way to the string, so that the string is touched only once
// for each 512 of them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace STL_FORMAT {

class STAGING_BUFFER {
  public:
    explicit STAGING_BUFFER(std::string* string) : target(string) {}

    void put(char character) {
        if (used == capacity) [[unlikely]]
            flush();
        staged[used++] = character;
    }
    // A text that fills the buffer by itself goes to the string in one piece.
    void put(const char* text, std::size_t length) {
        if (length > capacity - used) [[unlikely]] {
            flush();
            if (length >= capacity) {
                target->append(text, length);
                flushed += length;
                return;
            }
        }
        std::memcpy(staged + used, text, length);
        used += length;
    }
    void fill(char character, std::int64_t count) {
        while (count > 0 && !is_past_limit()) {
            if (used == capacity) flush();
            std::size_t part = std::min(static_cast<std::size_t>(count), capacity - used);
            std::memset(staged + used, character, part);
            used += part;
            count -= static_cast<std::int64_t>(part);
        }
    }
    void flush() {
        target->append(staged, used);
        flushed += used;
        used = 0;
    }

    // True once the count of characters written no longer fits an int.
    bool is_past_limit() const { return flushed + used > most_characters; }
    int count() const { return is_past_limit() ? -1 : static_cast<int>(flushed + used); }

  private:
    static constexpr std::size_t capacity = 512;
    static constexpr std::size_t most_characters = std::numeric_limits<int>::max();

    std::string* target;
    std::size_t flushed = 0;
    std::size_t used = 0;
    char staged[capacity];
};

}  // namespace STL_FORMAT
