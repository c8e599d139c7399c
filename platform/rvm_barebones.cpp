#include "platform/rvm_barebones.h"

#include <atomic>

namespace {

// A list that only grows, so that it is walked with no lock: neither an observer that allocates nor a fork
// at any moment can meet one. An entry whose observer was removed stays behind, empty.
struct ENTRY {
    std::atomic<RVM_BAREBONES_NOTIFIER::OBSERVER*> observer;
    std::atomic<ENTRY*> next{nullptr};
};

std::atomic<ENTRY*> first_entry{nullptr};

template <class VISIT>
void for_each_observer(VISIT visit) {
    for (ENTRY* entry = first_entry.load(); entry != nullptr; entry = entry->next.load()) {
        if (RVM_BAREBONES_NOTIFIER::OBSERVER* observer = entry->observer.load()) visit(entry, observer);
    }
}

void append(ENTRY* added) {
    std::atomic<ENTRY*>* slot = &first_entry;
    ENTRY* last = nullptr;
    while (!slot->compare_exchange_weak(last, added)) {
        if (last == nullptr) continue;
        slot = &last->next;
        last = nullptr;
    }
}

}  // namespace

bool RVM_BAREBONES_NOTIFIER::is_registered(const OBSERVER* observer) {
    bool found = false;
    for_each_observer([&](ENTRY*, OBSERVER* known) { found = found || known == observer; });
    return found;
}

void RVM_BAREBONES_NOTIFIER::add_observer(OBSERVER* observer) {
    if (observer != nullptr && !is_registered(observer)) append(new ENTRY{observer});
}

void RVM_BAREBONES_NOTIFIER::remove_observer(OBSERVER* observer) {
    for_each_observer([&](ENTRY* entry, OBSERVER* known) {
        if (known == observer) entry->observer.store(nullptr);
    });
}

void RVM_BAREBONES_NOTIFIER::announce_added(const void* address, std::uint64_t size) {
    for_each_observer([&](ENTRY*, OBSERVER* observer) { observer->mapping_added(address, size); });
}

void RVM_BAREBONES_NOTIFIER::announce_removed(const void* address, std::uint64_t size) {
    for_each_observer([&](ENTRY*, OBSERVER* observer) { observer->mapping_removed(address, size); });
}
