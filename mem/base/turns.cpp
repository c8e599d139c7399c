#include "mem/base/turns.h"

#include <algorithm>
#include <bit>
#include <mutex>

#include "platform/thread.h"

constinit MEM_TURN_LOCK mem_turn_locks[mem_turn_groups];

namespace {

// How long an owner is waited for that was asked, before the barrier.
constexpr int pauses_for_an_answer = 64;

// Taken before the locks of the groups, also by the first thread of a group.
constinit MEM_SPIN_LOCK all_turns;
constinit std::atomic<std::uint32_t> groups_in_use{0};
constinit thread_local int times_held __attribute__((tls_model("initial-exec"))) = 0;

template <class VISIT>
void for_each_group(std::uint32_t groups, VISIT visit) {
    for (; groups != 0; groups &= groups - 1) visit(static_cast<std::uint32_t>(std::countr_zero(groups)));
}

// These with the lock held. Nobody becomes its owner meanwhile.
bool has_other_owner(const MEM_TURN_LOCK& lock, std::uint32_t stripe) {
    const std::uint32_t owner = lock.owner.load(std::memory_order_acquire);
    return owner != MEM_TURN_LOCK::nobody && owner != stripe;
}
void ask_for(MEM_TURN_LOCK& lock) {
    lock.is_wanted.store(true, std::memory_order_relaxed);
}
// Of an owner that was asked. True when it did not answer: then it may still be inside until a barrier.
bool disown(MEM_TURN_LOCK& lock, std::uint32_t stripe) {
    for (int i = 0; i < pauses_for_an_answer && has_other_owner(lock, stripe); ++i) __builtin_ia32_pause();
    lock.is_wanted.store(false, std::memory_order_relaxed);
    lock.turns = 0;
    const bool is_silent = has_other_owner(lock, stripe);
    if (is_silent) lock.owner.store(MEM_TURN_LOCK::nobody, std::memory_order_relaxed);
    lock.turns_to_own =
        is_silent ? MEM_TURN_LOCK::turns_worth_a_barrier : MEM_TURN_LOCK::turns_worth_a_request;
    return is_silent;
}
void wait_for_owner(const MEM_TURN_LOCK& lock) {
    MEM_BACK_OFF back_off;
    while (lock.owner_is_inside.load(std::memory_order_acquire)) back_off.wait();
}

void end_ownership(MEM_TURN_LOCK& lock, std::uint32_t stripe) {
    if (!has_other_owner(lock, stripe)) return;
    ask_for(lock);
    if (!disown(lock, stripe)) return;
    barrier_on_all_threads();
    wait_for_owner(lock);
}

// With all_turns held.
void put_in_use(std::uint32_t group) {
    groups_in_use.fetch_or(1U << group, std::memory_order_relaxed);
}

}  // namespace

std::uint32_t mem_turn_groups_in_use() {
    return groups_in_use.load(std::memory_order_relaxed);
}

void MEM_TURN_LOCK::take(const MEM_THREAD_STRIPE& stripe) {
    const std::uint32_t group = stripe.index % mem_turn_groups;
    if ((mem_turn_groups_in_use() >> group & 1) == 0) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(all_turns);
        put_in_use(group);
    }
    lock.lock();
    if (latest != stripe.index) {
        end_ownership(*this, stripe.index);
        latest = stripe.index;
        turns = 0;
    } else if (stripe.is_own && stripe.index == group && ++turns >= turns_to_own) {
        owner.store(stripe.index, std::memory_order_relaxed);
    }
}

void mem_hold_turns() {
    if (times_held++ != 0) return;
    const std::uint32_t stripe = mem_thread_stripe().index;
    all_turns.lock();
    put_in_use(stripe % mem_turn_groups);  // this thread may give room to its share
    std::uint32_t owned = 0, silent = 0;
    for_each_group(mem_turn_groups_in_use(), [&](std::uint32_t group) {
        MEM_TURN_LOCK& lock = mem_turn_locks[group];
        lock.lock.lock();
        if (!has_other_owner(lock, stripe)) return;
        ask_for(lock);
        owned |= 1U << group;
    });
    for_each_group(owned, [&](std::uint32_t group) {
        if (disown(mem_turn_locks[group], stripe)) silent |= 1U << group;
    });
    if (silent == 0) return;
    barrier_on_all_threads();
    for_each_group(silent, [](std::uint32_t group) { wait_for_owner(mem_turn_locks[group]); });
}

void mem_release_turns() {
    if (--times_held != 0) return;
    for_each_group(mem_turn_groups_in_use(),
                   [](std::uint32_t group) { mem_turn_locks[group].lock.unlock(); });
    all_turns.unlock();
}

void mem_renew_turn_locks() {
    for (MEM_TURN_LOCK& lock : mem_turn_locks) {
        lock.owner.store(MEM_TURN_LOCK::nobody, std::memory_order_relaxed);
        lock.leave();
        lock.is_wanted.store(false, std::memory_order_relaxed);
        lock.turns = 0;
        lock.lock.unlock();
    }
    all_turns.unlock();
    times_held = 0;
}

bool MEM_KEPT_LOCK::enter_common(MEM_TURN& turn) {
    const std::uint8_t name = name_of(turn.group);
    for (;;) {
        lock.lock();
        const std::uint8_t found = keeper.load(std::memory_order_acquire);
        if (found == nobody && !is_left_to(name)) return true;
        lock.unlock();
        if (found == nobody || found == name) return false;
        turn.step_out([&] { take_from(found); });
    }
}

// True when the group has become the keeper.
bool MEM_KEPT_LOCK::is_left_to(std::uint8_t name) {
    if (latest != name) {
        latest = name;
        rivalry = std::min<std::uint16_t>(rivalry + step, most_steps);
    } else if (rivalry != 0) {
        --rivalry;
    } else {
        keeper.store(name, std::memory_order_relaxed);
        return true;
    }
    return false;
}

void MEM_KEPT_LOCK::take_from(std::uint8_t name) {
    MEM_TURN_LOCK& turns = mem_turn_locks[name - 1];
    if (times_held == 0) turns.lock.lock();
    end_ownership(turns, MEM_TURN_LOCK::nobody);
    if (keeper.load(std::memory_order_relaxed) == name) {
        rivalry = many_steps;
        keeper.store(nobody, std::memory_order_release);
    }
    if (times_held == 0) turns.lock.unlock();
}
