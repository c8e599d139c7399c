// The state machine that reads a format: the class of each character, and the state that it leads to.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace STL_FORMAT {

enum CHARACTER_CLASS : std::uint8_t {
    CLASS_OTHER,
    CLASS_PERCENT,
    CLASS_DOT,
    CLASS_STAR,
    CLASS_ZERO,
    CLASS_DIGIT,
    CLASS_FLAG,
    CLASS_SIZE,
    CLASS_TYPE,
    CLASS_COUNT
};

enum STATE : std::uint8_t {
    STATE_NORMAL,
    STATE_PERCENT,
    STATE_FLAG,
    STATE_WIDTH,
    STATE_DOT,
    STATE_PRECISION,
    STATE_SIZE,
    STATE_TYPE,
    STATE_COUNT
};

inline constexpr char first_classified = ' ';
inline constexpr char last_classified = 'x';

using CLASS_TABLE = std::array<CHARACTER_CLASS, last_classified - first_classified + 1>;

constexpr CLASS_TABLE make_class_table() {
    CLASS_TABLE table{};
    auto enter = [&table](std::string_view characters, CHARACTER_CLASS character_class) {
        for (char character : characters)
            table[static_cast<std::size_t>(character - first_classified)] = character_class;
    };
    enter("%", CLASS_PERCENT);
    enter(".", CLASS_DOT);
    enter("*", CLASS_STAR);
    enter("0", CLASS_ZERO);
    enter("123456789", CLASS_DIGIT);
    enter(" #+-", CLASS_FLAG);
    enter("FILNhlw", CLASS_SIZE);
    enter("BCEGSXZcdefginopsux", CLASS_TYPE);
    return table;
}

inline constexpr CLASS_TABLE class_table = make_class_table();

// One row for each class, one column for each present state.
inline constexpr STATE state_table[CLASS_COUNT][STATE_COUNT] = {
    // clang-format off
    //                normal         percent       flag          width         dot              precision        size          type
    /* other   */ {STATE_NORMAL,  STATE_NORMAL, STATE_NORMAL, STATE_NORMAL, STATE_NORMAL,    STATE_NORMAL,    STATE_NORMAL, STATE_NORMAL},
    /* percent */ {STATE_PERCENT, STATE_NORMAL, STATE_NORMAL, STATE_NORMAL, STATE_NORMAL,    STATE_NORMAL,    STATE_NORMAL, STATE_PERCENT},
    /* dot     */ {STATE_NORMAL,  STATE_DOT,    STATE_DOT,    STATE_DOT,    STATE_NORMAL,    STATE_NORMAL,    STATE_NORMAL, STATE_NORMAL},
    /* star    */ {STATE_NORMAL,  STATE_WIDTH,  STATE_WIDTH,  STATE_NORMAL, STATE_PRECISION, STATE_NORMAL,    STATE_NORMAL, STATE_NORMAL},
    /* zero    */ {STATE_NORMAL,  STATE_FLAG,   STATE_FLAG,   STATE_WIDTH,  STATE_PRECISION, STATE_PRECISION, STATE_NORMAL, STATE_NORMAL},
    /* digit   */ {STATE_NORMAL,  STATE_WIDTH,  STATE_WIDTH,  STATE_WIDTH,  STATE_PRECISION, STATE_PRECISION, STATE_NORMAL, STATE_NORMAL},
    /* flag    */ {STATE_NORMAL,  STATE_FLAG,   STATE_FLAG,   STATE_NORMAL, STATE_NORMAL,    STATE_NORMAL,    STATE_NORMAL, STATE_NORMAL},
    /* size    */ {STATE_NORMAL,  STATE_SIZE,   STATE_SIZE,   STATE_SIZE,   STATE_SIZE,      STATE_SIZE,      STATE_SIZE,   STATE_NORMAL},
    /* type    */ {STATE_NORMAL,  STATE_TYPE,   STATE_TYPE,   STATE_TYPE,   STATE_TYPE,      STATE_TYPE,      STATE_TYPE,   STATE_NORMAL},
    // clang-format on
};

constexpr STATE next_state(STATE state, char character) {
    bool classified = character >= first_classified && character <= last_classified;
    CHARACTER_CLASS character_class =
        classified ? class_table[static_cast<std::size_t>(character - first_classified)] : CLASS_OTHER;
    return state_table[character_class][state];
}

}  // namespace STL_FORMAT
