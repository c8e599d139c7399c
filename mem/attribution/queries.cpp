#include "ktl_mem/queries.h"

#include "mem/attribution/module_trackers.h"
#include "mem/base/gate.h"
#include "mem/base/tracker_phase.h"

bool mem_get_module_tracker(const std::string& module, MEMORY_TRACKER_BASE& out) {
    if (!mem_tbb_tracker_serves(mem_conditions::started_at_module_query)) return false;
    const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
    return mem_tbb_module_trackers->copy(module, out);
}
