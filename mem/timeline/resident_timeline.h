// MEM_RESIDENT_TIMELINE: the resident memory of the process over time, and taken apart at some of its points.
//
// At every sampling point the cheap figures are noted: what the system and the allocator say. Now and then,
// where the blocks in use have grown well beyond the last such point, the whole is taken apart, so that there
// is always such a point close below the highest total. The end is always one.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "mem/base/spin_lock.h"
#include "mem/timeline/resident_parts.h"

struct MEM_RESIDENT_POINT {
    std::int32_t milliseconds = 0;  // since the start of the process
    std::uint64_t event = 0;        // how many events had their numbers by then
    bool is_full = false;           // the mappings were looked at; else those parts are 0
    MEM_RESIDENT_PARTS parts;
};

// The resident memory taken apart now; no value when the system gives no figures, or while another thread is
// in here.
std::optional<MEM_RESIDENT_PARTS> mem_take_resident_apart(const MEM_TRACKED_BLOCKS& tracked);

class MEM_RESIDENT_TIMELINE {
  public:
    // Any thread; on the event path, or on a thread whose allocations are no events. total_rounding() is
    // asked for when the whole is taken apart.
    template <class ROUNDING>
    void sample(std::uint64_t event, MEM_TRACKED_BLOCKS tracked, ROUNDING total_rounding) {
        if (!is_full_point_due(tracked.heap)) return note(event, tracked);
        tracked.rounding = total_rounding();
        note_full(event, tracked);
    }
    // At an end, or where a host asks.
    void note_full(std::uint64_t event, const MEM_TRACKED_BLOCKS& tracked);

    // visit(points) while nobody adds one.
    template <class VISIT>
    void read(VISIT&& visit) {
        const std::unique_lock guard(lock);
        visit(static_cast<const std::vector<MEM_RESIDENT_POINT>&>(points));
    }

  private:
    bool is_full_point_due(std::int64_t blocks);
    void note(std::uint64_t event, const MEM_TRACKED_BLOCKS& tracked);
    void append(const MEM_RESIDENT_POINT& point);

    MEM_SPIN_LOCK lock;
    std::vector<MEM_RESIDENT_POINT> points;
    std::int64_t next_full_blocks = 0;  // bytes in use that are worth the next full point
    std::int32_t next_full_ms = 30;  // and when the last one will be paid off; of a short run only its end is
};

extern MEM_RESIDENT_TIMELINE* mem_tbb_resident_timeline;
