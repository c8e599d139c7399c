#include "mem/base/counted_lock.h"

#include "platform/process_life.h"

constinit MEM_COUNTED_LOCK mem_lock;

void MEM_COUNTED_LOCK::create() {
    if (initialised.exchange(true, std::memory_order_relaxed)) return;
    lock_count.store(0, std::memory_order_relaxed);
    InitializeCriticalSection(&critical_section);
}

void MEM_COUNTED_LOCK::lock() {
    if (is_created()) {
        EnterCriticalSection(&critical_section);
        if (!is_created()) LeaveCriticalSection(&critical_section);
    }
    lock_count.store(depth() + 1, std::memory_order_relaxed);
}

void MEM_COUNTED_LOCK::unlock() {
    if (depth() == 0) return;
    lock_count.store(depth() - 1, std::memory_order_relaxed);
    if (is_created()) LeaveCriticalSection(&critical_section);
}

void MEM_COUNTED_LOCK::unlock_all() {
    for (std::uint32_t holds = depth(); holds != 0; --holds) unlock();
}

// The critical section itself stays, for those who still wait at it.
void MEM_COUNTED_LOCK::release_and_delete() {
    initialised.store(false, std::memory_order_relaxed);
    for (std::uint32_t holds = lock_count.exchange(0, std::memory_order_relaxed); holds != 0; --holds)
        LeaveCriticalSection(&critical_section);
}

void MEM_COUNTED_LOCK::renew() {
    if (!is_created()) return;
    lock_count.store(0, std::memory_order_relaxed);
    InitializeCriticalSection(&critical_section);
}

void mem_create_lock() {
    static std::atomic<bool> done{false};
    if (done.exchange(true)) return;
    mem_lock.create();
    run_in_forked_child([] { mem_lock.renew(); });
}
