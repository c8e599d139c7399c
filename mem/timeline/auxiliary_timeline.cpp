#include "mem/timeline/auxiliary_timeline.h"

#include "mem/base/messages.h"
#include "platform/process.h"

MEM_AUXILIARY_TIMELINE* mem_tbb_auxiliary_timeline = nullptr;

MEM_AUXILIARY_SAMPLE mem_make_auxiliary_sample(const PROCESS_MEMORY_COUNTERS* process,
                                               const MEM_PROFILER_COUNTERS& profiler) {
    constexpr std::uint64_t unknown = ~std::uint64_t{0};
    const auto read = [](const auto& counter) { return counter.load(std::memory_order_relaxed); };
    return {.profiler_num_allocs = read(profiler.profiler_num_allocs),
            .profiler_num_deallocs = read(profiler.profiler_num_deallocs),
            .profiler_requested_total = read(profiler.profiler_requested_total),
            .profiler_requested_outstanding = read(profiler.profiler_requested_outstanding),
            .profiler_allocated_total = read(profiler.profiler_allocated_total),
            .profiler_allocated_outstanding = read(profiler.profiler_allocated_outstanding),
            .page_faults = process != nullptr ? process->PageFaultCount : unknown,
            .resident = process != nullptr ? process->WorkingSetSize : unknown,
            .commit_charge = process != nullptr ? process->PagefileUsage : unknown};
}

// The system is asked, and the message written, outside the lock.
void MEM_AUXILIARY_TIMELINE::capture() {
    PROCESS_MEMORY_COUNTERS process{};
    process.cb = sizeof process;
    const bool known = K32GetProcessMemoryInfo(GetCurrentProcess(), &process, sizeof process);
    if (!known) mem_msg_debug("%s: error getting PROCESS_MEMORY_COUNTERS", "capture");
    const MEM_AUXILIARY_SAMPLE sample =
        mem_make_auxiliary_sample(known ? &process : nullptr, mem_tbb_profiler_counters);
    const std::unique_lock guard(lock);
    samples.push_back(sample);
}
