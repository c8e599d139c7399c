#include "mem/base/counted_lock.h"

#include "platform/process_life.h"

constinit MEM_COUNTED_LOCK mem_lock;

void MEM_COUNTED_LOCK::create() {
    if (initialised.exchange(true, std::memory_order_relaxed)) return;
    lock_count.store(0, std::memory_order_relaxed);
    InitializeCriticalSection(&critical_section);
}

void MEM_COUNTED_LOCK::lock() {
    if (is_created()) EnterCriticalSection(&critical_section);
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

void MEM_COUNTED_LOCK::destroy() {
    if (initialised.exchange(false, std::memory_order_relaxed)) DeleteCriticalSection(&critical_section);
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
