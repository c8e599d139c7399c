#include "mem/base/share_locks.h"

#include <bit>
#include <mutex>

#include "platform/thread.h"

constinit MEM_SHARE_LOCK mem_share_locks[mem_share_groups];

namespace {

// A barrier costs about as much as that many locked instructions.
constexpr std::uint32_t turns_worth_a_barrier = 256;

// Taken before the locks of the groups, also by the first thread of a group.
constinit MEM_SPIN_LOCK all_shares;
constinit std::atomic<std::uint32_t> groups_in_use{0};
constinit thread_local int times_held __attribute__((tls_model("initial-exec"))) = 0;

template <class VISIT>
void for_each_lock_in_use(VISIT visit) {
    for (std::uint32_t left = mem_share_groups_in_use(); left != 0; left &= left - 1)
        visit(mem_share_locks[std::countr_zero(left)]);
}

// These two with the lock held. True when there was an owner, who then may still be inside until a barrier.
bool end_ownership(MEM_SHARE_LOCK& lock) {
    if (lock.owner.load(std::memory_order_relaxed) == MEM_SHARE_LOCK::nobody) return false;
    lock.owner.store(MEM_SHARE_LOCK::nobody, std::memory_order_relaxed);
    lock.turns = 0;
    return true;
}
void wait_for_owner(const MEM_SHARE_LOCK& lock) {
    MEM_BACK_OFF back_off;
    while (lock.owner_is_inside.load(std::memory_order_acquire)) back_off.wait();
}

// With all_shares held.
void put_in_use(std::uint32_t group) {
    groups_in_use.fetch_or(1U << group, std::memory_order_relaxed);
}

}  // namespace

std::uint32_t mem_share_groups_in_use() {
    return groups_in_use.load(std::memory_order_relaxed);
}

void MEM_SHARE_LOCK::take(const MEM_THREAD_STRIPE& stripe) {
    const std::uint32_t group = stripe.index % mem_share_groups;
    if ((mem_share_groups_in_use() >> group & 1) == 0) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(all_shares);
        put_in_use(group);
    }
    lock.lock();
    if (latest != stripe.index) {
        if (end_ownership(*this)) {
            barrier_on_all_threads();
            wait_for_owner(*this);
        }
        latest = stripe.index;
        turns = 0;
    } else if (stripe.is_own && ++turns == turns_worth_a_barrier) {
        owner.store(stripe.index, std::memory_order_relaxed);
    }
}

void mem_hold_shares() {
    if (times_held++ != 0) return;
    all_shares.lock();
    put_in_use(mem_thread_stripe().index % mem_share_groups);  // this thread may give room to its share
    bool had_owners = false;
    for_each_lock_in_use([&](MEM_SHARE_LOCK& lock) {
        lock.lock.lock();
        had_owners |= end_ownership(lock);
    });
    if (!had_owners) return;
    barrier_on_all_threads();
    for_each_lock_in_use(wait_for_owner);
}

void mem_release_shares() {
    if (--times_held != 0) return;
    for_each_lock_in_use([](MEM_SHARE_LOCK& lock) { lock.lock.unlock(); });
    all_shares.unlock();
}

void mem_renew_share_locks() {
    for (MEM_SHARE_LOCK& lock : mem_share_locks) {
        lock.owner.store(MEM_SHARE_LOCK::nobody, std::memory_order_relaxed);
        lock.leave();
        lock.turns = 0;
        lock.lock.unlock();
    }
    all_shares.unlock();
    times_held = 0;
}
