// The tracking word, the reports that are due and the two numbers that sampling goes by. Writers are the
// start, the switch and the shut-down of the tracker; everybody reads. Plain words that any thread may read
// while another writes, hence atomics; nothing is ordered by them, so all accesses are relaxed.
#pragma once

#include <atomic>
#include <cstdint>

#include "ktl_mem/tracking.h"

// A word that threads read and write without a lock and without ordering anything by it.
template <class T>
class MEM_PLAIN_WORD {
  public:
    constexpr MEM_PLAIN_WORD(T initial = T{}) : value(initial) {}
    operator T() const { return value.load(std::memory_order_relaxed); }
    MEM_PLAIN_WORD& operator=(T next) {
        value.store(next, std::memory_order_relaxed);
        return *this;
    }
    MEM_PLAIN_WORD(const MEM_PLAIN_WORD&) = delete;
    MEM_PLAIN_WORD& operator=(const MEM_PLAIN_WORD&) = delete;

  private:
    std::atomic<T> value;
};

inline constexpr std::uint32_t mem_stack_walk_bits =
    MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_PER_FILELINE | MEM_TRACKING_LEAKS | MEM_TRACKING_CALL_PATHS;
inline constexpr std::uint32_t mem_call_site_counter_bits = MEM_TRACKING_PER_FILELINE | MEM_TRACKING_LEAKS;
inline constexpr std::uint32_t mem_timeline_mask =
    MEM_TRACKING_PROFILE_BIN_TAGS | MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_PER_FILELINE;
// Those whose timelines get a row at each sampling point.
inline constexpr std::uint32_t mem_timeline_row_bits =
    MEM_TRACKING_PROFILE_BIN_TAGS | MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_AUXILIARY_TIMELINE;
inline constexpr std::uint32_t mem_stats_bits = MEM_TRACKING_ALLOC_DEALLOC | MEM_TRACKING_LEAKS_FAST;

struct MEM_TRACKING_SAMPLING {
    std::uint64_t library_snapshot_period = 0x20000;             // events between two sampling points
    std::uint64_t fileline_peak_snapshot_threshold = 0x8000000;  // bytes; grid of the threshold peak
};

// The word has a page to itself, which the system clears in a forked child before anything runs there: a
// child's events must not touch locks that a thread of the parent held at the fork, not even those of another
// library's fork handler that comes before ours.
struct alignas(4096) MEM_TRACKING_WORD_PAGE : MEM_PLAIN_WORD<std::uint32_t> {
    using MEM_PLAIN_WORD::operator=;
};
extern MEM_TRACKING_WORD_PAGE mem_tracking_word;
extern MEM_PLAIN_WORD<std::uint64_t> mem_library_snapshot_period;
extern MEM_PLAIN_WORD<std::uint64_t> mem_fileline_peak_snapshot_threshold;

// Which report files the shut-down writes: the bits that were asked for at the start.
extern MEM_PLAIN_WORD<std::uint32_t> mem_reports_due;
inline bool mem_report_is_due(std::uint32_t any_of_bits) {
    return (mem_reports_due & any_of_bits) != 0;
}

// Whether bins measure, and whether they attribute.
extern MEM_PLAIN_WORD<bool> mem_tbb_memory_tracking_enabled;
extern MEM_PLAIN_WORD<bool> mem_tbb_bin_tags_enabled;

// The tracker's debug line goes straight to standard output.
extern MEM_PLAIN_WORD<bool> mem_tbb_no_msg_debug;

// Reads the two numbers. A bad one, or zero, costs one debug line and leaves the default.
MEM_TRACKING_SAMPLING mem_get_tracking_sampling_from_env();

// How many distinct paths of calls there may be, read likewise.
inline constexpr std::uint32_t mem_default_call_path_nodes = std::uint32_t{4} << 20;
std::uint32_t mem_get_most_call_path_nodes_from_env();

// True when an environment switch is on: set, not empty, and not exactly "0".
bool mem_env_switch_is_on(const char* name);
