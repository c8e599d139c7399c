#include "mem/tracker/tracker_state.h"

#include "mem/base/undestroyed.h"

MEM_SHARED_WORD<std::uint64_t> mem_tbb_event_counter;
static constinit MEM_UNDESTROYED<MEM_TALLY> total_bytes;
constinit MEM_TALLY& mem_tbb_total_bytes = total_bytes.object;
MEM_SHARED_WORD<std::uint64_t> mem_tbb_timeline_index;
constinit MEM_PLAIN_WORD<std::int32_t> MEM_STACK_TRACE_IGNORE_DEPTH{5};
ERR_UNWINDER* mem_tbb_unwinder = nullptr;
