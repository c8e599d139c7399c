// MEM_AUXILIARY_TIMELINE: what the system says of the process beside what the tracker costs, sample by
// sample. Each sample is a record of its own.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "mem/base/profiler_counters.h"
#include "mem/base/spin_lock.h"
#include "platform/process_memory.h"

// The three figures of the process are all ones when the system would not give them.
struct MEM_AUXILIARY_SAMPLE {
    std::uint64_t profiler_num_allocs = 0;
    std::uint64_t profiler_num_deallocs = 0;
    std::uint64_t profiler_requested_total = 0;        // bytes
    std::uint64_t profiler_requested_outstanding = 0;  // bytes, less the allocated sizes of frees
    std::uint64_t profiler_allocated_total = 0;        // bytes
    std::uint64_t profiler_allocated_outstanding = 0;  // bytes
    std::uint64_t page_faults = 0;                     // of the process since it began
    std::uint64_t resident = 0;                        // bytes
    std::uint64_t commit_charge = 0;                   // bytes
};

// The record of these readings; null for a process that could not be read. Each profiler counter is read by
// itself.
MEM_AUXILIARY_SAMPLE mem_make_auxiliary_sample(const PROCESS_MEMORY_COUNTERS* process,
                                               const MEM_PROFILER_COUNTERS& profiler);

class MEM_AUXILIARY_TIMELINE {
  public:
    // Any thread; on the event path, or on a thread whose allocations are no events.
    void capture();

    // visit(samples) while nobody adds one.
    template <class VISIT>
    void read(VISIT&& visit) {
        const std::unique_lock guard(lock);
        visit(static_cast<const std::vector<MEM_AUXILIARY_SAMPLE>&>(samples));
    }

  private:
    MEM_SPIN_LOCK lock;
    std::vector<MEM_AUXILIARY_SAMPLE> samples;
};

extern MEM_AUXILIARY_TIMELINE* mem_tbb_auxiliary_timeline;
