#include "mem/tracker/event_numbers.h"

#include <algorithm>

#include "mem/base/tracking_word.h"
#include "mem/tracker/tracker_state.h"

constinit thread_local std::uint32_t mem_event_numbers_left = 0;

namespace {

constexpr std::uint64_t largest_batch = 32;

}  // namespace

bool mem_take_event_numbers() {
    const std::uint64_t period = mem_library_snapshot_period;
    std::atomic<std::uint64_t>& counter = mem_tbb_event_counter.value;
    // Relaxed: the numbers order nothing.
    std::uint64_t first = counter.load(std::memory_order_relaxed);
    std::uint64_t batch = 0;
    do {
        batch = std::min(largest_batch, period - first % period);
    } while (!counter.compare_exchange_weak(first, first + batch, std::memory_order_relaxed));
    mem_event_numbers_left = static_cast<std::uint32_t>(batch) - 1;
    return first % period == 0;
}
