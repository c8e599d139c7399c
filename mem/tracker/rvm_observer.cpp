#include "mem/tracker/rvm_observer.h"

#include "ktl_mem/tracking.h"
#include "mem/base/thread_state.h"

MEM_RVM_OBSERVER::~MEM_RVM_OBSERVER() {
    retire();
}

void MEM_RVM_OBSERVER::mapping_added(const void* address, std::uint64_t size) {
    mem_notify_memory_mapping_added(address, size);
}

void MEM_RVM_OBSERVER::mapping_removed(const void* address, std::uint64_t size) {
    mem_notify_memory_mapping_removed(address, size);
}

void MEM_RVM_OBSERVER::enlist() {
    const MEM_BLOCK_TRACKING_SCOPE own_entry;
    if (!RVM_BAREBONES_NOTIFIER::is_registered(this)) RVM_BAREBONES_NOTIFIER::add_observer(this);
}

void MEM_RVM_OBSERVER::retire() {
    if (RVM_BAREBONES_NOTIFIER::is_registered(this)) RVM_BAREBONES_NOTIFIER::remove_observer(this);
}
