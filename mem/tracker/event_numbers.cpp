#include "mem/tracker/event_numbers.h"

#include <algorithm>

#include "mem/base/tracking_word.h"
#include "mem/tracker/tracker_state.h"

constinit MEM_HELD_EVENT_NUMBERS mem_held_event_numbers[mem_stripe_count];

namespace {

constexpr std::uint64_t largest_batch = 32;

}  // namespace

bool mem_take_event_numbers(const MEM_THREAD_STRIPE& stripe) {
    const std::uint64_t period = mem_library_snapshot_period;
    const std::uint64_t most = stripe.is_own ? largest_batch : 1;
    std::atomic<std::uint64_t>& counter = mem_tbb_event_counter.value;
    // Relaxed: the numbers order nothing.
    std::uint64_t first = counter.load(std::memory_order_relaxed);
    std::uint64_t batch = 0;
    do {
        batch = std::min(most, period - first % period);
    } while (!counter.compare_exchange_weak(first, first + batch, std::memory_order_relaxed));
    if (stripe.is_own) mem_held_event_numbers[stripe.index].left = static_cast<std::uint32_t>(batch) - 1;
    return first % period == 0;
}

std::uint64_t mem_events_numbered() {
    const MEM_THREAD_STRIPE& stripe = mem_thread_stripe();
    return mem_tbb_event_counter.read() - (stripe.is_own ? mem_held_event_numbers[stripe.index].left : 0);
}
