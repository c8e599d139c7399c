// Counters that every event moves, spread over cache lines so that threads do not wait for each other's.
//
// A stripe that one thread alone writes is moved by plain loads and stores. What orders those against a
// reader is the reader's business, who has the system run a barrier on all threads (barrier_on_all_threads).
// Where the system has none, and for threads beyond the number of stripes, stripes are shared and moved by
// locked instructions.
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr std::uint32_t mem_stripe_count = 64;

struct alignas(64) MEM_STRIPE {
    std::atomic<std::int64_t> count{0};
};

// The stripe of a thread. When the thread ends, the next one that starts takes it over as it is.
struct MEM_THREAD_STRIPE {
    std::uint32_t index = 0;
    bool is_taken = false;  // the thread has asked for it
    bool is_own = false;    // no other thread has it
};
extern constinit thread_local MEM_THREAD_STRIPE mem_thread_stripe_of_this
    __attribute__((tls_model("initial-exec")));
void mem_take_thread_stripe();

inline const MEM_THREAD_STRIPE& mem_thread_stripe() {
    if (!mem_thread_stripe_of_this.is_taken) [[unlikely]]
        mem_take_thread_stripe();
    return mem_thread_stripe_of_this;
}
