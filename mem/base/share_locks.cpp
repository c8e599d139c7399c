#include "mem/base/share_locks.h"

#include <bit>
#include <mutex>

#include "platform/thread.h"

constinit MEM_SHARE_LOCK mem_share_locks[mem_share_groups];

namespace {

// How long an owner is waited for that was asked, before the barrier.
constexpr int pauses_for_an_answer = 64;

// Taken before the locks of the groups, also by the first thread of a group.
constinit MEM_SPIN_LOCK all_shares;
constinit std::atomic<std::uint32_t> groups_in_use{0};
constinit thread_local int times_held __attribute__((tls_model("initial-exec"))) = 0;

template <class VISIT>
void for_each_group(std::uint32_t groups, VISIT visit) {
    for (; groups != 0; groups &= groups - 1) visit(static_cast<std::uint32_t>(std::countr_zero(groups)));
}

// These with the lock held. Nobody becomes its owner meanwhile.
bool has_other_owner(const MEM_SHARE_LOCK& lock, std::uint32_t stripe) {
    const std::uint32_t owner = lock.owner.load(std::memory_order_acquire);
    return owner != MEM_SHARE_LOCK::nobody && owner != stripe;
}
// True when the owner did not answer. Then it may still be inside until a barrier.
bool disown(MEM_SHARE_LOCK& lock, std::uint32_t stripe) {
    for (int i = 0; i < pauses_for_an_answer && has_other_owner(lock, stripe); ++i) __builtin_ia32_pause();
    lock.is_wanted.store(false, std::memory_order_relaxed);
    lock.turns = 0;
    const bool is_silent = has_other_owner(lock, stripe);
    if (is_silent) lock.owner.store(MEM_SHARE_LOCK::nobody, std::memory_order_relaxed);
    lock.turns_to_own =
        is_silent ? MEM_SHARE_LOCK::turns_worth_a_barrier : MEM_SHARE_LOCK::turns_worth_a_request;
    return is_silent;
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
        if (has_other_owner(*this, stripe.index)) {
            is_wanted.store(true, std::memory_order_relaxed);
            if (disown(*this, stripe.index)) {
                barrier_on_all_threads();
                wait_for_owner(*this);
            }
        }
        latest = stripe.index;
        turns = 0;
    } else if (stripe.is_own && stripe.index == group && ++turns >= turns_to_own) {
        owner.store(stripe.index, std::memory_order_relaxed);
    }
}

void mem_hold_shares() {
    if (times_held++ != 0) return;
    const std::uint32_t stripe = mem_thread_stripe().index;
    all_shares.lock();
    put_in_use(stripe % mem_share_groups);  // this thread may give room to its share
    std::uint32_t owned = 0, silent = 0;
    for_each_group(mem_share_groups_in_use(), [&](std::uint32_t group) {
        MEM_SHARE_LOCK& lock = mem_share_locks[group];
        lock.lock.lock();
        if (!has_other_owner(lock, stripe)) return;
        lock.is_wanted.store(true, std::memory_order_relaxed);
        owned |= 1U << group;
    });
    for_each_group(owned, [&](std::uint32_t group) {
        if (disown(mem_share_locks[group], stripe)) silent |= 1U << group;
    });
    if (silent == 0) return;
    barrier_on_all_threads();
    for_each_group(silent, [](std::uint32_t group) { wait_for_owner(mem_share_locks[group]); });
}

void mem_release_shares() {
    if (--times_held != 0) return;
    for_each_group(mem_share_groups_in_use(),
                   [](std::uint32_t group) { mem_share_locks[group].lock.unlock(); });
    all_shares.unlock();
}

void mem_renew_share_locks() {
    for (MEM_SHARE_LOCK& lock : mem_share_locks) {
        lock.owner.store(MEM_SHARE_LOCK::nobody, std::memory_order_relaxed);
        lock.leave();
        lock.is_wanted.store(false, std::memory_order_relaxed);
        lock.turns = 0;
        lock.lock.unlock();
    }
    all_shares.unlock();
    times_held = 0;
}
