// The process-wide scalars of the tracker. Each word that every event writes has a cache line of its own.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/tally.h"
#include "mem/base/tracking_word.h"
#include "platform/ktl_err.h"

template <class T>
struct alignas(64) MEM_SHARED_WORD {
    std::atomic<T> value{0};

    // Relaxed: the words are numbers and sums of their own, and order nothing else.
    T take_next() { return value.fetch_add(1, std::memory_order_relaxed); }
    T read() const { return value.load(std::memory_order_relaxed); }
};

extern MEM_SHARED_WORD<std::uint64_t>
    mem_tbb_event_counter;              // numbers that threads have taken for their events
extern MEM_TALLY& mem_tbb_total_bytes;  // kept while the timeline mask is non-zero
extern MEM_SHARED_WORD<std::uint64_t> mem_tbb_timeline_index;  // sampling points passed, likewise

extern MEM_PLAIN_WORD<std::int32_t> MEM_STACK_TRACE_IGNORE_DEPTH;  // innermost frames that a stack leaves out
// The process's walker. The event path goes by the steps under it (platform/stack_walk.h) and not by
// captures.
extern ERR_UNWINDER* mem_tbb_unwinder;
