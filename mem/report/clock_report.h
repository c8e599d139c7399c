// The report of the sample clock: a row for each sample, with its time.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "mem/timeline/sample_clock.h"

struct MEM_CLOCK_HEAD {
    std::int64_t start;  // milliseconds since 1970 at which the process began
    std::int32_t process;
    std::int32_t parent;
};

void mem_write_clock_report(std::ostream& out, const MEM_CLOCK_HEAD& head,
                            const std::vector<MEM_SAMPLE_TIME>& times);

// Of mem_tbb_sample_clock, which takes no sample meanwhile.
void mem_dump_sample_clock(std::ostream& out);
