// The page that launcher and tracked process share: wishes go in, figures and answers come out. Neither side
// believes what it reads: a program can write anywhere in its own memory.
#pragma once

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>

namespace memrun::control {

inline constexpr std::uint32_t page_magic = 0x6b746c63;
inline constexpr std::uint32_t page_version = 1;

// Bits of Page::wishes. The process takes a wish by clearing its bit.
inline constexpr std::uint32_t wishes_figures = 1;
inline constexpr std::uint32_t wishes_order = 2;

enum class Order : std::uint32_t {
    none,
    reports,  // all of them as of now, into Page::folder
    start,    // tracking on, with what was tracked before the stop; the tables begin anew
    stop,     // tracking off
    reset     // the tables begin anew
};

enum class Outcome : std::uint32_t {
    none,
    done,
    cannot_write,  // into the folder; Page::error has the reason
    refused        // there is nothing to do: already stopped, not stopped, or at its end
};

struct Page {
    std::uint32_t magic;
    std::uint32_t version;
    std::atomic<std::uint32_t> wishes;
    std::atomic<Order> order;
    std::atomic<std::uint64_t> order_number;  // of the order given last
    std::atomic<std::uint64_t> answered;      // the same number, once it is carried out
    std::atomic<Outcome> outcome;
    std::atomic<std::int32_t> error;     // errno
    std::atomic<std::uint64_t> took_us;  // by the last order
    char folder[64];                     // name of a folder in the hidden one; given before the order

    // The process at one moment (ktl_mem/running_reports.h).
    std::atomic<std::uint64_t> figures_taken;  // how often; 0: never
    std::atomic<std::uint64_t> moment_ms;      // on the clock that counts since the machine's start
    std::atomic<std::uint32_t> word;
    std::atomic<std::uint64_t> events;
    std::atomic<std::int64_t> current_bytes;
    std::atomic<std::int64_t> current_blocks;
    std::atomic<std::int64_t> peak_bytes;
    std::atomic<std::int64_t> own_bytes;
    // Set once its own reports are written: nobody needs its region any more.
    std::atomic<std::uint32_t> has_reports;
    // When the tables began anew by an order, on the same clock; 0: never.
    std::atomic<std::uint64_t> began_anew_ms;
};

// Sent to a process that is to fulfil a wish at once, though it makes no event. Ignored by default.
inline constexpr int wish_signal = SIGURG;

// The page takes this much memory of its own.
inline constexpr std::size_t page_bytes = 4096;
static_assert(sizeof(Page) <= page_bytes && std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace memrun::control
