// Memory shared with another process that names code for this one: what is asked and answered in it, and the
// bell that wakes who answers.
//
// A thread that asks claims a free slot, writes its question, sets the slot's state to asked and rings. The
// other side writes the answer over the question and sets the state to answered. While it works it counts the
// pulse up, a few times a second at least. The memory is that of two processes: what is read in it is copied
// or checked before it is trusted.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace symbols {

inline constexpr std::uint32_t name_channel_mark = 0x6b746e31;

enum class SLOT_STATE : std::uint32_t { FREE, CLAIMED, ASKED, ANSWERED };

struct NAME_SLOT {
    std::atomic<SLOT_STATE> state;  // the futex of who waits for the answer
    std::uint32_t size;             // of the text
    char text[64 * 1024 - 8];
};

struct NAME_CHANNEL {
    std::uint32_t mark;
    std::atomic<std::uint32_t> is_given_up;  // who asks got no answer and asks no more
    std::atomic<std::uint32_t> freed;        // counts freed slots; the futex of who waits for one
    NAME_SLOT slots[4];
};

struct NAME_BELL {
    std::uint32_t mark;
    std::atomic<std::uint32_t> rings;  // the futex of who answers
    std::atomic<std::uint32_t> pulse;
};

static_assert(std::is_standard_layout_v<NAME_CHANNEL> && std::atomic<SLOT_STATE>::is_always_lock_free);

// Waits until the word no longer holds the value, or for no reason; true when the time was over. Less than 0
// milliseconds are no limit.
bool wait_for_change(const void* word, std::uint32_t value, int milliseconds);
// Wakes all who wait for the word, of any process.
void wake_waiting(const void* word);

}  // namespace symbols
