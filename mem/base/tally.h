// MEM_TALLY: what is charged somewhere, moved by any number of threads at once, with exact maxima.
//
//   charge, discharge --> home, under its byte lock               while it is one thread's, or nearly
//                     \-> the share of the thread's group         once threads take turns (spread)
//                           \-> settle: all shares at one moment  when a charge finds no room there
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
#include "mem/base/share_locks.h"
#include "mem/base/spin_lock.h"

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

// What events move. Whoever holds the lock that guards it moves it; it is atomic and relaxed for those who
// only peek.
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
    MEM_SPIN_LOCK lock;
    std::atomic<bool> is_spread{false};  // changed with the lock and all shares held
    std::uint8_t mover = 0;              // the stripe that moved it last
    std::uint32_t crowd = 0;             // how often that has changed of late, in steps

    void raise_highest() {
        set(highest_blocks, std::max(get(highest_blocks), get(blocks)));
        set(highest_bytes, std::max(get(highest_bytes), get(bytes)));
    }
    // True when threads have come in turns for a while. That need not be often: besides the line that changes
    // processors, every move at home costs a locked instruction.
    bool is_crowded_by(std::uint32_t stripe) {
        constexpr std::uint32_t step = 1024, many_steps = 4 * step;
        if (mover == stripe) [[likely]] {
            crowd -= crowd != 0 ? 1 : 0;
            return false;
        }
        mover = static_cast<std::uint8_t>(stripe);
        crowd += step;
        return crowd >= many_steps;
    }
};

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

    // One block more, or less. Sizes in bytes.
    void charge(std::uint64_t requested, std::uint64_t allocated) {
        const bool done = try_at_home([&] {
            home.add(requested, allocated);
            home.raise_highest();
        });
        if (!done) [[unlikely]]
            charge_share(requested, allocated);
    }
    void discharge(std::uint64_t allocated, std::uint64_t mismatched = 0) {
        const bool done = try_at_home([&] {
            home.remove(allocated);
            if (mismatched != 0) [[unlikely]]
                MEM_TALLY_HOME::move(mismatched_at_home, static_cast<std::int64_t>(mismatched));
        });
        if (!done) [[unlikely]]
            discharge_share(allocated, mismatched);
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

    // False when charges do not come home for now.
    template <class MOVE>
    bool try_at_home(MOVE move) {
        if (is_spread()) return false;
        if (process_has_one_thread()) [[likely]] {
            move();
            return true;
        }
        return try_at_shared_home(move);
    }
    template <class MOVE>
    bool try_at_shared_home(MOVE move) {
        const std::uint32_t stripe = mem_thread_stripe().index;
        home.lock.lock();
        const bool is_open = !is_spread();
        if (is_open) [[likely]]
            move();
        const bool is_crowded = is_open && home.is_crowded_by(stripe);
        home.lock.unlock();
        if (is_crowded) [[unlikely]]
            spread_out();
        return is_open;
    }
    void charge_share(std::uint64_t requested, std::uint64_t allocated);
    void discharge_share(std::uint64_t allocated, std::uint64_t mismatched);
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
