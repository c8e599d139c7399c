#include "mem/timeline/sample_clock.h"

#include "platform/clock.h"

MEM_SAMPLE_CLOCK* mem_tbb_sample_clock = nullptr;

void MEM_SAMPLE_CLOCK::note(std::uint64_t event) {
    const std::unique_lock guard(lock);
    times.push_back({clock_ms(), event});
}
