// The report of the auxiliary timeline.
#pragma once

#include <ostream>
#include <vector>

#include "mem/timeline/auxiliary_timeline.h"

void mem_write_auxiliary_report(std::ostream& out, const std::vector<MEM_AUXILIARY_SAMPLE>& samples);

// Of mem_tbb_auxiliary_timeline, which takes no sample meanwhile.
void dump_auxiliary_timeline(std::ostream& out);
