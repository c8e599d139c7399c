// MEM_TALLY: what is charged somewhere, moved by any number of threads at once, with exact maxima.
//
//   charge, discharge --> home                                    while it is one thread's, or nearly
//                     \-> the share of the thread's group         once threads come in turns (spread)
//                           \-> settle: all shares at one moment  when a charge finds no room there
//
// All of that happens within turns of the thread (mem/base/turns.h), most of it without a locked instruction.
//
// A maximum makes one counter of what threads could otherwise count apart. So each share has a limit that its
// count may rise to, and the limits of all shares together never exceed the maximum. While every share keeps
// to its limit, the sum is not above the maximum in whatever order the events of the threads come; so nobody
// has to look. Only a share that would pass its limit does, with all shares held. Example, in blocks, of two
// threads A and B:
//
//                      A has   may have   B has   may have   sum   maximum
//                        5        6         3        7         8      13
//   A allocates two:     7                  3                        A would pass its limit and settles:
//                        7        9         3        4        10      13   B had room for 4, and keeps 1
//   B frees three:       7        9         0        4         7      13   no limit is asked
//   A allocates three:  10                  0                        A settles:
//                       10       12         0        1        10      13   A takes 3 of what B has room for
//   A allocates two:    12       12         0        1        12      13
//   A allocates three:  15                  0                        no room is left: a new maximum
//                       15       15         0        0        15      15
//
// Where each charge is a new maximum, as in a program that only grows, settling would cost more than it
// saves: then the tally gathers in its home again for a while.
//
// No memory is taken but for the shares, at the moment of spreading; without it the tally stays gathered.
// Safe in an allocator hook, not in a signal handler, but for what says so.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "ktl_mem/records.h"
#include "mem/base/turns.h"

// All counters at one moment. Blocks have 64 bits here; a record shows the nearest number that it can hold.
struct MEM_TALLY_FIGURES {
    std::int64_t current_blocks = 0;
    std::int64_t max_blocks = 0;
    std::int64_t cumulative_blocks = 0;
    std::int64_t current_bytes = 0;
    std::int64_t max_bytes = 0;
    std::int64_t cumulative_bytes = 0;
    std::int64_t cumulative_requested_bytes = 0;
    std::int64_t cumulative_mismatched_bytes = 0;

    // A tally knows of no peak, so those of the peak are 0.
    operator MEMORY_TRACKER_BASE() const;
};

// What events move, within turns; atomic and relaxed for those who only peek.
struct MEM_TALLY_COUNTS {
    std::atomic<std::int64_t> blocks{0};
    std::atomic<std::int64_t> bytes{0};
    std::atomic<std::int64_t> cumulative_blocks{0};
    std::atomic<std::int64_t> cumulative_bytes{0};
    std::atomic<std::int64_t> cumulative_requested_bytes{0};

    void add(std::uint64_t requested, std::uint64_t allocated) {
        move(blocks, 1);
        move(cumulative_blocks, 1);
        move(bytes, static_cast<std::int64_t>(allocated));
        move(cumulative_bytes, static_cast<std::int64_t>(allocated));
        move(cumulative_requested_bytes, static_cast<std::int64_t>(requested));
    }
    void remove(std::uint64_t allocated) {
        move(blocks, -1);
        move(bytes, -static_cast<std::int64_t>(allocated));
    }
    void clear();
    // Adds what another has, and leaves that one empty.
    void take_over(MEM_TALLY_COUNTS& from);

    template <class T>
    static T get(const std::atomic<T>& counter) {
        return counter.load(std::memory_order_relaxed);
    }
    template <class T>
    static void set(std::atomic<T>& counter, std::type_identity_t<T> value) {
        counter.store(value, std::memory_order_relaxed);
    }
    template <class T>
    static void move(std::atomic<T>& counter, std::type_identity_t<T> amount) {
        set(counter, static_cast<T>(get(counter) + amount));
    }
};

// Where a tally is charged while threads hardly meet there, and what it had counted when it spread.
struct alignas(64) MEM_TALLY_HOME : MEM_TALLY_COUNTS {
    std::atomic<std::int64_t> highest_blocks{0};  // while it is not spread
    std::atomic<std::int64_t> highest_bytes{0};
    MEM_KEPT_LOCK lock;
    std::atomic<bool> is_spread{false};  // changed while all turns are held

    void raise_highest() {
        set(highest_blocks, std::max(get(highest_blocks), get(blocks)));
        set(highest_bytes, std::max(get(highest_bytes), get(bytes)));
    }
};
static_assert(sizeof(MEM_TALLY_HOME) == 64);

// What the threads of a group have charged and taken back since the tally spread.
struct alignas(64) MEM_TALLY_SHARE : MEM_TALLY_COUNTS {
    std::atomic<std::int64_t> cumulative_mismatched_bytes{0};
    std::atomic<std::int64_t> blocks_limit{0};
    std::atomic<std::int64_t> bytes_limit{0};

    bool has_room_for(std::uint64_t allocated) const {
        return get(blocks) < get(blocks_limit) &&
               get(bytes) + static_cast<std::int64_t>(allocated) <= get(bytes_limit);
    }
};

class MEM_TALLY {
  public:
    constexpr MEM_TALLY() = default;
    ~MEM_TALLY();
    MEM_TALLY(const MEM_TALLY&) = delete;
    MEM_TALLY& operator=(const MEM_TALLY&) = delete;

    // One block more, or less. Sizes in bytes. May step out of the turn.
    void charge(MEM_TURN& turn, std::uint64_t requested, std::uint64_t allocated) {
        if (home.lock.is_kept_by(turn)) [[likely]] {
            charge_home(requested, allocated);
        } else {
            charge_apart(turn, requested, allocated);
        }
    }
    void discharge(MEM_TURN& turn, std::uint64_t allocated, std::uint64_t mismatched = 0) {
        if (home.lock.is_kept_by(turn)) [[likely]] {
            discharge_home(allocated, mismatched);
        } else {
            discharge_apart(turn, allocated, mismatched);
        }
    }
    // Those who move nothing else.
    void charge(std::uint64_t requested, std::uint64_t allocated) {
        MEM_TURN turn;
        charge(turn, requested, allocated);
    }
    void discharge(std::uint64_t allocated, std::uint64_t mismatched = 0) {
        MEM_TURN turn;
        discharge(turn, allocated, mismatched);
    }

    MEM_TALLY_FIGURES read();
    std::int64_t current_bytes() { return read().current_bytes; }
    std::int64_t current_blocks() { return read().current_blocks; }

    // Without a lock, also in a signal handler: while others charge, the count may stem from several moments.
    std::int64_t peek_at_current_bytes() const { return sum(&MEM_TALLY_COUNTS::bytes); }
    std::int64_t peek_at_current_blocks() const { return sum(&MEM_TALLY_COUNTS::blocks); }
    // Without a lock: a maximum that was right at some moment.
    std::int64_t highest_bytes() const;
    std::int64_t highest_blocks() const;

    // These return the counters as they were before.
    // Maxima begin anew: bytes at the current count, or lower where the maximum was put lower, but at least
    // at a floor; blocks at their count.
    MEM_TALLY_FIGURES restart_highest(std::int64_t floor = std::numeric_limits<std::int64_t>::min());
    // Puts another value in the place of the maximum; the next charge raises it if the count is above.
    MEM_TALLY_FIGURES set_highest_bytes(std::int64_t bytes);

    void clear();

    // Nobody asks for the highest number of blocks: it costs nothing from now on, until the tally is cleared.
    void ignore_highest_blocks();

    // Between the two nothing moves: the counters of several tallies belong to one moment.
    void hold();
    MEM_TALLY_FIGURES held() const;
    void release();

    // In a forked child, where nobody releases the locks that other threads of the parent held.
    void renew_locks();

  private:
    struct SHARES;

    bool is_spread() const { return home.is_spread.load(std::memory_order_relaxed); }

    void charge_home(std::uint64_t requested, std::uint64_t allocated) {
        home.add(requested, allocated);
        home.raise_highest();
    }
    void discharge_home(std::uint64_t allocated, std::uint64_t mismatched) {
        home.remove(allocated);
        if (mismatched != 0) [[unlikely]]
            MEM_TALLY_HOME::move(mismatched_at_home, static_cast<std::int64_t>(mismatched));
    }
    void charge_apart(MEM_TURN& turn, std::uint64_t requested, std::uint64_t allocated);
    void discharge_apart(MEM_TURN& turn, std::uint64_t allocated, std::uint64_t mismatched);
    template <class MOVE>
    bool try_at_home(MEM_TURN& turn, MOVE move);
    bool may_spread() const;
    bool settle(std::uint64_t requested, std::uint64_t allocated);
    void look_back();
    void give_all_room_to(MEM_TALLY_SHARE& owner);
    void spread_out();
    void gather();
    void put_highest(std::int64_t bytes, std::int64_t blocks);
    std::int64_t sum(std::atomic<std::int64_t> MEM_TALLY_COUNTS::*counter) const;

    MEM_TALLY_HOME home;
    std::atomic<SHARES*> shares{nullptr};  // made at the first spreading, and kept
    std::atomic<std::int64_t> mismatched_at_home{0};
};
