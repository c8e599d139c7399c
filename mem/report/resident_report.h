// The report of the resident memory: its parts at each point, and the limits that it lives under.
#pragma once

#include <ostream>
#include <vector>

#include "mem/timeline/resident_timeline.h"

struct MEM_RESIDENT_LIMITS {
    std::uint64_t cgroup;         // bytes, or no_memory_limit
    std::uint64_t address_space;  // the same
};

void mem_write_resident_report(std::ostream& out, const std::vector<MEM_RESIDENT_POINT>& points,
                               const MEM_RESIDENT_LIMITS& limits);

// Of mem_tbb_resident_timeline, which takes no point meanwhile.
void mem_dump_resident_timeline(std::ostream& out);
