#include "mem/attribution/module_trackers.h"

constinit MEM_SPIN_LOCK mem_module_lock;
MEM_MODULE_TABLE* mem_tbb_module_trackers = nullptr;

MEM_MODULE_ENTRY& MEM_MODULE_TABLE::find_or_create(std::string_view name) {
    const MEM_LOCK_SCOPE guard(mem_module_lock);
    const auto found = entries.find(name);
    return found != entries.end() ? found->second : entries.try_emplace(std::string(name)).first->second;
}

bool MEM_MODULE_TABLE::copy(std::string_view name, MEMORY_TRACKER_BASE& out) {
    const MEM_LOCK_SCOPE guard(mem_module_lock);
    const auto found = entries.find(name);
    if (found == entries.end()) return false;
    out = found->second.tally.read();
    return true;
}

void MEM_MODULE_TABLE::clear() {
    const MEM_LOCK_SCOPE guard(mem_module_lock);
    entries.clear();
}
