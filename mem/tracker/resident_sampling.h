// What the tracker adds to the figures of the resident memory, and when they are taken.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/timeline/resident_timeline.h"

// Bytes of announced mappings that are charged now: part of the tracker's total, and no blocks of the heap.
extern std::atomic<std::int64_t> mem_tbb_announced_bytes;

// At a sampling point, outside the gate.
void mem_sample_resident();

// Takes the whole apart as it is now: at the end, or where a host asks. With the gate held as a cat, or by a
// thread whose allocations are no events.
void mem_note_resident_now();

// Blocks in use by the tracking word; rounding left aside.
MEM_TRACKED_BLOCKS mem_tracked_blocks();

// What the allocator gave beyond what was asked for, of all tracked blocks in use: each call site's share is
// taken as it was on average. Walks all call sites with their lock held.
std::int64_t mem_rounding_of_blocks();
