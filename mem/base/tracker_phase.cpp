#include "mem/base/tracker_phase.h"

constinit std::atomic<MEM_TRACKER_PHASE> mem_tbb_tracker_phase{MEM_TRACKER_PHASE::not_started};
