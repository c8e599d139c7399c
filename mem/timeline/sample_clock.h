// MEM_SAMPLE_CLOCK: when each sample of the timelines was taken, so that seconds stand beside samples.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "mem/base/spin_lock.h"

struct MEM_SAMPLE_TIME {
    std::int32_t milliseconds;  // since the process began; -1 when there was no clock
    std::uint64_t event;        // how many events had their numbers by then
};

class MEM_SAMPLE_CLOCK {
  public:
    // Any thread; on the event path, or on a thread whose allocations are no events. Later samples have later
    // times, since the clock is read under the lock.
    void note(std::uint64_t event);

    // visit(times) while nobody adds one.
    template <class VISIT>
    void read(VISIT&& visit) {
        const std::unique_lock guard(lock);
        visit(static_cast<const std::vector<MEM_SAMPLE_TIME>&>(times));
    }

  private:
    MEM_SPIN_LOCK lock;
    std::vector<MEM_SAMPLE_TIME> times;
};

extern MEM_SAMPLE_CLOCK* mem_tbb_sample_clock;
