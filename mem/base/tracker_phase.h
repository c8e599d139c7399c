// Whether the tracker's tables exist.
#pragma once

#include <atomic>

#include "mem/base/internal_error.h"

enum class MEM_TRACKER_PHASE {
    not_started,
    started,
    // The tables are gone, or belong to the parent of a forked child. The phase is final: calls that come
    // late, from other threads or from destructors of the host, find nothing and change nothing.
    ended
};

// Release by the writer, acquire by the readers: who sees `started` sees the tables.
extern std::atomic<MEM_TRACKER_PHASE> mem_tbb_tracker_phase;

inline bool mem_tbb_tracker_is_inited() {
    return mem_tbb_tracker_phase.load(std::memory_order_acquire) == MEM_TRACKER_PHASE::started;
}

// For operations that may come at any time, but find nothing any more after the end. In a forked child the
// tables are there, and their locks may be held for ever.
inline bool mem_tbb_tracker_has_ended() {
    return mem_tbb_tracker_phase.load(std::memory_order_acquire) == MEM_TRACKER_PHASE::ended;
}

// For operations that need the tables: an internal error before the start, false after the end.
inline bool mem_tbb_tracker_serves(const MEM_CONDITION& started) {
    const MEM_TRACKER_PHASE phase = mem_tbb_tracker_phase.load(std::memory_order_acquire);
    mem_require(phase != MEM_TRACKER_PHASE::not_started, started);
    return phase == MEM_TRACKER_PHASE::started;
}
