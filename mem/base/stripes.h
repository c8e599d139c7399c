// Counters that every event moves, spread over cache lines so that threads do not wait for each other's.
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr std::uint32_t mem_stripe_count = 64;

struct alignas(64) MEM_STRIPE {
    std::atomic<std::int64_t> count{0};
};

extern constinit thread_local std::uint32_t mem_thread_stripe_plus_one
    __attribute__((tls_model("initial-exec")));
std::uint32_t mem_take_thread_stripe();

// The stripe of the calling thread: threads take them in turn, and keep theirs for good.
inline std::uint32_t mem_thread_stripe() {
    const std::uint32_t plus_one = mem_thread_stripe_plus_one;
    return plus_one != 0 ? plus_one - 1 : mem_take_thread_stripe();
}
