// The traffic that the tracker declines to attribute: what happens on a thread that is inside the tracker or
// blocked, chiefly the tracker's own memory. Moved with atomic additions and nothing else: these run with
// the tracker's locks held.
#pragma once

#include <atomic>
#include <cstdint>

struct MEM_PROFILER_COUNTERS {
    std::atomic<std::uint64_t> profiler_num_allocs{0};
    std::atomic<std::uint64_t> profiler_num_deallocs{0};
    std::atomic<std::uint64_t> profiler_requested_total{0};
    std::atomic<std::uint64_t> profiler_requested_outstanding{0};
    std::atomic<std::uint64_t> profiler_allocated_total{0};
    std::atomic<std::uint64_t> profiler_allocated_outstanding{0};

    void count_alloc(std::uint64_t requested, std::uint64_t allocated) {
        add(profiler_num_allocs, 1);
        add(profiler_requested_total, requested);
        add(profiler_requested_outstanding, requested);
        add(profiler_allocated_total, allocated);
        add(profiler_allocated_outstanding, allocated);
    }
    // The requested size is not known at a free, so the allocated one comes off both.
    void count_dealloc(std::uint64_t allocated) {
        add(profiler_num_deallocs, 1);
        add(profiler_requested_outstanding, 0 - allocated);
        add(profiler_allocated_outstanding, 0 - allocated);
    }

  private:
    // Relaxed: six sums that nobody orders anything by.
    static void add(std::atomic<std::uint64_t>& counter, std::uint64_t value) {
        counter.fetch_add(value, std::memory_order_relaxed);
    }
};

extern MEM_PROFILER_COUNTERS mem_tbb_profiler_counters;
