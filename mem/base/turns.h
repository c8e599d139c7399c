// Turns: how threads move what is counted without a locked instruction. A thread moves tallies
// (mem/base/tally.h) and entries of the table by address (mem/base/address_map.h) within a turn. Turns of one
// group of threads, which nearly always is one thread alone, exclude each other; those of different groups do
// not. So what one group alone moves needs no other lock, and who needs that at rest holds the turns of that
// group, or of all.
//
// What excludes turns of a group is a lock, and what that costs is mostly its locked instruction. So a lock
// that one thread takes again and again becomes its own: that thread says that it is inside, and looks
// whether the lock is still its own, by plain accesses. Whoever else needs the lock asks for it first: an
// owner that runs gives it up at the end of its next turn, well within a microsecond. From one that does not
// come the ownership is taken away, and the system runs a barrier on all threads; then either the owner finds
// its ownership gone and steps back, or it is seen inside and waited for. Why this excludes is the reasoning
// of the gate (mem/base/gate.h), with the owner as a mouse and the other as a cat. That barrier costs as much
// as some thousand locked instructions, on a virtual machine at least, so that an owner that it was taken
// from must earn it by as many turns.
//
// Turns are short: nobody begins one within another, waits for another thread's turn or for the loader in
// one. Safe in an allocator hook, not in a signal handler.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/base/stripes.h"

inline constexpr std::uint32_t mem_turn_groups = 16;

struct alignas(64) MEM_TURN_LOCK {
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
extern constinit MEM_TURN_LOCK mem_turn_locks[mem_turn_groups];

class MEM_TURN {
  public:
    MEM_TURN() : MEM_TURN(mem_thread_stripe()) {}
    ~MEM_TURN() { end(); }
    MEM_TURN(const MEM_TURN&) = delete;
    MEM_TURN& operator=(const MEM_TURN&) = delete;

    const std::uint32_t group;

    // What waits for other turns. Whatever was seen before in this turn may have changed afterwards.
    template <class WORK>
    void step_out(WORK work) {
        const OUTSIDE outside(*this);
        work();
    }

  private:
    class OUTSIDE {
      public:
        explicit OUTSIDE(MEM_TURN& left) : turn(left) { turn.end(); }
        ~OUTSIDE() { turn.begin(); }
        OUTSIDE(const OUTSIDE&) = delete;
        OUTSIDE& operator=(const OUTSIDE&) = delete;

      private:
        MEM_TURN& turn;
    };

    explicit MEM_TURN(const MEM_THREAD_STRIPE& thread)
        : group(thread.index % mem_turn_groups), stripe(thread), lock(mem_turn_locks[group]) {
        begin();
    }
    void begin() {
        is_owner = lock.enter(stripe.index);
        if (!is_owner) [[unlikely]]
            lock.take(stripe);
    }
    void end() MEM_LOCKS_UNCHECKED {
        if (is_owner) [[likely]] {
            lock.leave();
        } else {
            lock.lock.unlock();
        }
    }

    const MEM_THREAD_STRIPE& stripe;
    MEM_TURN_LOCK& lock;
    bool is_owner = false;
};

// Between the two nobody has a turn. A thread may hold them several times over.
void mem_hold_turns();
void mem_release_turns();

// The same for a scope: many tallies are read faster within one.
class MEM_TURNS_HELD {
  public:
    MEM_TURNS_HELD() { mem_hold_turns(); }
    ~MEM_TURNS_HELD() { mem_release_turns(); }
    MEM_TURNS_HELD(const MEM_TURNS_HELD&) = delete;
    MEM_TURNS_HELD& operator=(const MEM_TURNS_HELD&) = delete;
};

// A bit for each group that has had a turn. Stands still while turns are held.
std::uint32_t mem_turn_groups_in_use();

// In a forked child, where nobody releases what other threads of the parent held.
void mem_renew_turn_locks();

// The lock of something that is moved within turns, and most often by one group: that one keeps it then, and
// needs no other lock than its turn. A group that comes to it holds the keeper's turns for a moment and makes
// it common: then everybody locks, until one group alone has come for a while.
//
// Why the keeper is alone: that it ceases to be the keeper is only written while its turns are held, and that
// another becomes it only with the lock held while nobody is. So within a turn, who reads its own group here
// is the keeper until the turn's end, and who has locked and reads nobody has it for itself until it unlocks.
class MEM_KEPT_LOCK {
  public:
    bool is_kept_by(const MEM_TURN& turn) const {
        return keeper.load(std::memory_order_relaxed) == name_of(turn.group);
    }
    // May step out of the turn. True when leave is to be called.
    bool enter(MEM_TURN& turn) {
        if (is_kept_by(turn)) [[likely]]
            return false;
        return enter_common(turn);
    }
    void leave() MEM_LOCKS_UNCHECKED { lock.unlock(); }

    // While it is locked: groups have come in turns for a while. That need not be often: besides the line
    // that changes processors, everyone who comes pays a locked instruction.
    bool is_crowded() const { return rivalry >= many_steps; }

    // While all turns are held: from now on everybody locks.
    void make_common() { keeper.store(nobody, std::memory_order_relaxed); }
    // In a forked child.
    void renew() MEM_LOCKS_UNCHECKED { lock.unlock(); }

  private:
    static constexpr std::uint8_t nobody = 0;
    static constexpr std::uint16_t first_stay = 4, step = 1024, many_steps = 4 * step, most_steps = 8 * step;
    static constexpr std::uint8_t name_of(std::uint32_t group) {
        return static_cast<std::uint8_t>(group + 1);
    }

    bool enter_common(MEM_TURN& turn);
    bool is_left_to(std::uint8_t name);
    void take_from(std::uint8_t name);

    // Guarded by the lock: the group that came last, and how often that has changed of late, in steps; each
    // time that it has not counts against that. At 0 that group becomes the keeper.
    std::uint16_t rivalry = first_stay;
    std::uint8_t latest = nobody;
    std::atomic<std::uint8_t> keeper{nobody};  // by its name, 0 for none
    MEM_SPIN_LOCK lock;
};

// Has what a lock guards to itself for a scope of a turn.
class MEM_KEPT_GUARD {
  public:
    MEM_KEPT_GUARD(MEM_KEPT_LOCK& guarding, MEM_TURN& turn)
        : lock(guarding), is_locked(guarding.enter(turn)) {}
    ~MEM_KEPT_GUARD() {
        if (is_locked) [[unlikely]]
            lock.leave();
    }
    MEM_KEPT_GUARD(const MEM_KEPT_GUARD&) = delete;
    MEM_KEPT_GUARD& operator=(const MEM_KEPT_GUARD&) = delete;

  private:
    MEM_KEPT_LOCK& lock;
    const bool is_locked;
};
