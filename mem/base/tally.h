// MEM_TALLY: what is charged somewhere, moved by any number of threads at once, with exact maxima.
//
//   charge, discharge --> home, under its byte lock                  while threads hardly meet
//                     \-> the thread's share, if it has room           once they do (spread)
//                           \-> settle: all shares at one moment       seldom
//
// A maximum makes one counter of what threads could otherwise count apart. So each share has a limit that its
// count may rise to, and the limits of all shares together never exceed the maximum. While every share keeps
// to its limit, the sum is not above the maximum in whatever order the events of the threads come; so nobody
// has to look. Only a share that would pass its limit does, with all shares locked. It takes half the room of
// the share that has most, which will miss it least: a share whose thread has freed a block and is about to
// allocate the next has a little room, and needs that. When nobody has any, this is a new maximum. Where all
// that happens at every turn, as in a program that only grows, the tally gathers in its home again.
//
// No memory is taken but for the shares, at the moment of spreading; without it the tally stays gathered.
// Safe in an allocator hook, not in a signal handler.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "ktl_mem/records.h"
#include "mem/base/spin_lock.h"

// A part of a tally. Its lock guards it; the counters are atomic and relaxed for those who only peek.
struct alignas(64) MEM_TALLY_SHARE {
    MEM_SPIN_LOCK lock;
    std::atomic<bool> is_open;  // charges come here
    std::uint8_t waits = 0;     // threads that found it locked
    std::atomic<std::int32_t> blocks{0};
    std::atomic<std::int32_t> blocks_limit{0};
    std::atomic<std::int64_t> bytes{0};
    std::atomic<std::int64_t> bytes_limit{0};
    std::atomic<std::int64_t> cumulative_blocks{0};
    std::atomic<std::int64_t> cumulative_bytes{0};
    std::atomic<std::int64_t> cumulative_requested_bytes{0};
    std::atomic<std::int64_t> cumulative_mismatched_bytes{0};

    explicit constexpr MEM_TALLY_SHARE(bool open = false) : is_open(open) {}

    // These with the lock held.
    void add(std::uint64_t requested, std::uint64_t allocated) {
        move(blocks, 1);
        move(cumulative_blocks, 1);
        move(bytes, static_cast<std::int64_t>(allocated));
        move(cumulative_bytes, static_cast<std::int64_t>(allocated));
        move(cumulative_requested_bytes, static_cast<std::int64_t>(requested));
    }
    void remove(std::uint64_t allocated, std::uint64_t mismatched) {
        move(blocks, -1);
        move(bytes, -static_cast<std::int64_t>(allocated));
        if (mismatched != 0) move(cumulative_mismatched_bytes, static_cast<std::int64_t>(mismatched));
    }
    bool has_room_for(std::uint64_t allocated) const {
        return get(blocks) < get(blocks_limit) &&
               get(bytes) + static_cast<std::int64_t>(allocated) <= get(bytes_limit);
    }
    void raise_limits() {
        set(blocks_limit, std::max(get(blocks_limit), get(blocks)));
        set(bytes_limit, std::max(get(bytes_limit), get(bytes)));
    }

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

class MEM_TALLY {
  public:
    constexpr MEM_TALLY() = default;
    ~MEM_TALLY();
    MEM_TALLY(const MEM_TALLY&) = delete;
    MEM_TALLY& operator=(const MEM_TALLY&) = delete;

    // One block more, or less. Sizes in bytes.
    void charge(std::uint64_t requested, std::uint64_t allocated) {
        const bool done = try_at_home([&](MEM_TALLY_SHARE& share) {
            share.add(requested, allocated);
            share.raise_limits();
        });
        if (!done) [[unlikely]]
            charge_share(requested, allocated);
    }
    void discharge(std::uint64_t allocated, std::uint64_t mismatched = 0) {
        const bool done = try_at_home([&](MEM_TALLY_SHARE& share) { share.remove(allocated, mismatched); });
        if (!done) [[unlikely]]
            discharge_share(allocated, mismatched);
    }

    // All counters at one moment. A tally knows of no peak, so those of the peak are 0.
    MEMORY_TRACKER_BASE read();

    // Without a lock: while others charge, a count may stem from several moments.
    std::int64_t current_bytes() const;
    std::int32_t current_blocks() const;
    std::int64_t highest_bytes() const;
    std::int32_t highest_blocks() const;

    // These return the counters as they were before.
    // Maxima begin anew: bytes at the current count, or lower where the maximum was put lower, but at least
    // at a floor; blocks at their count.
    MEMORY_TRACKER_BASE restart_highest(std::int64_t floor = std::numeric_limits<std::int64_t>::min());
    // Puts another value in the place of the maximum; the next charge raises it if the count is above.
    MEMORY_TRACKER_BASE set_highest_bytes(std::int64_t bytes);

    void clear();

    // Nobody asks for the highest number of blocks: it costs nothing from now on, until the tally is cleared.
    void ignore_highest_blocks();

    // Between the two nothing moves: the counters of several tallies belong to one moment.
    void hold();
    MEMORY_TRACKER_BASE held() const;
    void release();

    // In a forked child, where nobody releases the locks that other threads of the parent held.
    void renew_locks();

  private:
    struct SHARES;

    // False when charges do not come home for now.
    template <class MOVE>
    bool try_at_home(MOVE move) {
        if (!home.is_open.load(std::memory_order_relaxed)) return false;
        const bool waited = home.lock.acquire();
        const bool is_open = home.is_open.load(std::memory_order_relaxed);
        if (is_open) [[likely]]
            move(home);
        const bool is_crowded = waited && ++home.waits >= many_waits;
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
    bool is_spread() const { return !home.is_open.load(std::memory_order_relaxed); }
    void put_highest(std::int64_t bytes, std::int32_t blocks);
    template <class VISIT>
    void for_each_share(VISIT&& visit) const;
    template <class T>
    T sum(std::atomic<T> MEM_TALLY_SHARE::*counter) const;

    static constexpr std::uint8_t many_waits = 16;

    MEM_TALLY_SHARE home{true};
    std::atomic<SHARES*> shares{nullptr};  // made at the first spreading, and kept
};
