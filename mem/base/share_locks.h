// The locks of the shares of all tallies (mem/base/tally.h). A thread moves its shares under the lock of its
// group, which nearly always is the thread alone; who needs shares at rest takes all locks.
//
// What a lock costs is mostly its locked instruction. So a lock that one thread takes again and again becomes
// its own: that thread says that it is inside, and looks whether the lock is still its own, by plain
// accesses. Whoever else needs the lock asks for it first: an owner that runs gives it up at the end of its
// next turn, well within a microsecond. From one that does not come the ownership is taken away, and the
// system runs a barrier on all threads; then either the owner finds its ownership gone and steps back, or it
// is seen inside and waited for. Why this excludes is the reasoning of the gate (mem/base/gate.h), with the
// owner as a mouse and the other as a cat. That barrier costs as much as some thousand locked instructions,
// on a virtual machine at least, so that an owner that it was taken from must earn it by as many turns.
//
// Nobody takes another lock, allocates or waits within a turn. Safe in an allocator hook, not in a signal
// handler.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/base/stripes.h"

inline constexpr std::uint32_t mem_share_groups = 16;

struct alignas(64) MEM_SHARE_LOCK {
    static constexpr std::uint32_t nobody = UINT32_MAX;

    static constexpr std::uint32_t turns_worth_a_request = 64, turns_worth_a_barrier = 4096;

    // The stripe of the group's first thread, set by that thread alone. No other can own the lock: it might
    // come late out of enter and take back the word of an owner that is inside.
    std::atomic<std::uint32_t> owner{nobody};
    std::atomic<bool> owner_is_inside{false};
    std::atomic<bool> is_wanted{false};  // somebody waits for the owner to give it up
    MEM_SPIN_LOCK lock;  // of those who are not the owner; guards the following and what owner says
    std::uint32_t latest = nobody;  // the stripe that had it last
    std::uint32_t turns = 0;        // of that stripe in a row
    std::uint32_t turns_to_own = turns_worth_a_request;

    // As the owner; false when the lock must be taken.
    bool enter(std::uint32_t stripe) {
        if (owner.load(std::memory_order_relaxed) != stripe) return false;
        owner_is_inside.store(true, std::memory_order_relaxed);
        // The order that the other's barrier relies on.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (owner.load(std::memory_order_relaxed) == stripe) [[likely]]
            return true;
        leave();
        return false;
    }
    void leave() {
        owner_is_inside.store(false, std::memory_order_release);
        if (is_wanted.load(std::memory_order_relaxed)) [[unlikely]]
            owner.store(nobody, std::memory_order_release);
    }

    void take(const MEM_THREAD_STRIPE& stripe);
};
extern constinit MEM_SHARE_LOCK mem_share_locks[mem_share_groups];

// A thread's turn at its shares.
class MEM_SHARE_TURN {
  public:
    MEM_SHARE_TURN() : MEM_SHARE_TURN(mem_thread_stripe()) {}
    ~MEM_SHARE_TURN() {
        if (is_owner) [[likely]] {
            share_lock.leave();
        } else {
            share_lock.lock.unlock();
        }
    }
    MEM_SHARE_TURN(const MEM_SHARE_TURN&) = delete;
    MEM_SHARE_TURN& operator=(const MEM_SHARE_TURN&) = delete;

    const std::uint32_t group;

  private:
    explicit MEM_SHARE_TURN(const MEM_THREAD_STRIPE& stripe)
        : group(stripe.index % mem_share_groups),
          share_lock(mem_share_locks[group]),
          is_owner(share_lock.enter(stripe.index)) {
        if (!is_owner) [[unlikely]]
            share_lock.take(stripe);
    }

    MEM_SHARE_LOCK& share_lock;
    const bool is_owner;
};

// Between the two no share of any tally moves. A thread may hold them several times over.
void mem_hold_shares();
void mem_release_shares();

// The same for a scope: many tallies are read faster within one.
class MEM_SHARES_AT_REST {
  public:
    MEM_SHARES_AT_REST() { mem_hold_shares(); }
    ~MEM_SHARES_AT_REST() { mem_release_shares(); }
    MEM_SHARES_AT_REST(const MEM_SHARES_AT_REST&) = delete;
    MEM_SHARES_AT_REST& operator=(const MEM_SHARES_AT_REST&) = delete;
};

// A bit for each group that threads have had a turn in. Stands still while shares are held.
std::uint32_t mem_share_groups_in_use();

// In a forked child, where nobody releases what other threads of the parent held.
void mem_renew_share_locks();
