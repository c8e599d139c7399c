#include "mem/base/tally.h"

#include <memory>
#include <mutex>
#include <new>
#include <span>

#include "mem/base/stripes.h"
#include "platform/kept_errno.h"

namespace {

using SHARE = MEM_TALLY_SHARE;

constexpr std::uint32_t share_count = 16;

// A settlement costs about as much as that many charges at a crowded home. When a number of them was not
// worth it, threads meet at home again for a number of charges, which doubles from time to time.
constexpr std::int64_t charges_worth_a_settlement = 8;
constexpr int settlements_a_look = 64;
constexpr std::int64_t shortest_stay = 1024;
constexpr int most_doublings = 10;

// As the highest number of blocks, this is out of reach.
constexpr std::int32_t ignored_blocks = std::numeric_limits<std::int32_t>::max();

// to - from, or the nearest value there is.
template <class T>
T distance(T from, T to) {
    T result = 0;
    if (!__builtin_sub_overflow(to, from, &result)) return result;
    return to > from ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
}

template <class T>
T sum_at_most(T count, T room) {
    T sum = 0;
    return __builtin_add_overflow(count, room, &sum) ? std::numeric_limits<T>::max() : sum;
}

// The highest sum of a count over all shares, and what each of them may rise to. All locks are held for
// changes; the maximum is atomic for those who only peek.
template <class T, std::atomic<T> SHARE::*COUNT, std::atomic<T> SHARE::*LIMIT>
struct MAXIMUM {
    std::atomic<T> highest{0};

    // After a charge to a share. The sum is the present one.
    void settle(SHARE& charged, std::span<SHARE> shares, T sum) {
        if (take_room(charged, shares)) return;
        SHARE::set(highest, std::max(SHARE::get(highest), sum));
        give_all_room_to(charged, shares, sum);
    }

    // Where the sum is above the highest value already, every share settles at its next charge.
    void give_all_room_to(SHARE& owner, std::span<SHARE> shares, T sum) const {
        const T all_room = distance(sum, SHARE::get(highest));
        for (SHARE& share : shares)
            SHARE::set(share.*LIMIT, all_room < 0 ? std::numeric_limits<T>::min() : SHARE::get(share.*COUNT));
        if (all_room > 0) give_room(owner, all_room);
    }

  private:
    static T room(const SHARE& share) { return distance(SHARE::get(share.*COUNT), SHARE::get(share.*LIMIT)); }
    static void give_room(SHARE& share, T more) {
        SHARE::set(share.*LIMIT, sum_at_most(SHARE::get(share.*LIMIT), more));
    }

    // Until the share is within its limit. False when the others have not enough.
    static bool take_room(SHARE& taker, std::span<SHARE> shares) {
        while (room(taker) < 0) {
            const auto richest =
                std::max_element(shares.begin(), shares.end(),
                                 [](const SHARE& a, const SHARE& b) { return room(a) < room(b); });
            const T most = room(*richest);
            if (most <= 0) return false;
            const auto taken = static_cast<T>(most - most / 2);
            SHARE::move(*richest.*LIMIT, -taken);
            give_room(taker, taken);
        }
        return true;
    }
};

}  // namespace

struct MEM_TALLY::SHARES {
    SHARE all[share_count];
    MAXIMUM<std::int32_t, &SHARE::blocks, &SHARE::blocks_limit> blocks;
    MAXIMUM<std::int64_t, &SHARE::bytes, &SHARE::bytes_limit> bytes;

    // Guarded by all locks of the tally together.
    int settlements = 0;              // since the latest look back
    std::int64_t charges_before = 0;  // at the latest look back
    int stays = 0;                    // at home, since settlements were last worth it
    std::int64_t stay_ends_at = 0;    // by the charges that came home

    SHARE& own() { return all[mem_thread_stripe().index % share_count]; }
};

MEM_TALLY::~MEM_TALLY() {
    delete shares.load(std::memory_order_relaxed);
}

template <class VISIT>
void MEM_TALLY::for_each_share(VISIT&& visit) const {
    // Acquire: who sees the shares sees them made.
    if (SHARES* made = shares.load(std::memory_order_acquire))
        for (SHARE& share : made->all) visit(share);
}

template <class T>
T MEM_TALLY::sum(std::atomic<T> SHARE::*counter) const {
    T sum = SHARE::get(home.*counter);
    for_each_share([&](const SHARE& share) { sum += SHARE::get(share.*counter); });
    return sum;
}

std::int64_t MEM_TALLY::current_bytes() const {
    return sum(&SHARE::bytes);
}
std::int32_t MEM_TALLY::current_blocks() const {
    return sum(&SHARE::blocks);
}
std::int64_t MEM_TALLY::highest_bytes() const {
    const SHARES* made = is_spread() ? shares.load(std::memory_order_acquire) : nullptr;
    return made != nullptr ? SHARE::get(made->bytes.highest) : SHARE::get(home.bytes_limit);
}
std::int32_t MEM_TALLY::highest_blocks() const {
    const SHARES* made = is_spread() ? shares.load(std::memory_order_acquire) : nullptr;
    return made != nullptr ? SHARE::get(made->blocks.highest) : SHARE::get(home.blocks_limit);
}

void MEM_TALLY::hold() {
    home.lock.lock();
    for_each_share([](SHARE& share) { share.lock.lock(); });
}

MEMORY_TRACKER_BASE MEM_TALLY::held() const {
    MEMORY_TRACKER_BASE now;
    now.current_blocks = current_blocks();
    now.current_bytes = current_bytes();
    now.max_blocks = highest_blocks();
    now.max_bytes = highest_bytes();
    now.cumulative_blocks = sum(&SHARE::cumulative_blocks);
    now.cumulative_bytes = sum(&SHARE::cumulative_bytes);
    now.cumulative_requested_bytes = sum(&SHARE::cumulative_requested_bytes);
    now.cumulative_mismatched_bytes = sum(&SHARE::cumulative_mismatched_bytes);
    return now;
}

void MEM_TALLY::release() {
    for_each_share([](SHARE& share) { share.lock.unlock(); });
    home.lock.unlock();
}

void MEM_TALLY::renew_locks() {
    release();
}

MEMORY_TRACKER_BASE MEM_TALLY::read() {
    hold();
    const MEMORY_TRACKER_BASE now = held();
    release();
    return now;
}

void MEM_TALLY::charge_share(std::uint64_t requested, std::uint64_t allocated) {
    SHARES* made = shares.load(std::memory_order_acquire);
    if (made != nullptr) {
        SHARE& own = made->own();
        const std::lock_guard<MEM_SPIN_LOCK> guard(own.lock);
        if (own.is_open.load(std::memory_order_relaxed) && own.has_room_for(allocated)) [[likely]] {
            own.add(requested, allocated);
            return;
        }
    }
    // Whoever spreads or gathers meanwhile sends this thread round again.
    if (made == nullptr || !settle(requested, allocated)) charge(requested, allocated);
}

void MEM_TALLY::discharge_share(std::uint64_t allocated, std::uint64_t mismatched) {
    if (SHARES* made = shares.load(std::memory_order_acquire)) {
        SHARE& own = made->own();
        const std::lock_guard<MEM_SPIN_LOCK> guard(own.lock);
        if (own.is_open.load(std::memory_order_relaxed)) [[likely]] {
            own.remove(allocated, mismatched);
            return;
        }
    }
    discharge(allocated, mismatched);
}

// A charge that its share has no room for. False when charges come home again.
bool MEM_TALLY::settle(std::uint64_t requested, std::uint64_t allocated) {
    hold();
    const bool was_spread = is_spread();
    if (was_spread) {
        SHARES& made = *shares.load(std::memory_order_relaxed);
        SHARE& own = made.own();
        own.add(requested, allocated);
        made.blocks.settle(own, made.all, current_blocks());
        made.bytes.settle(own, made.all, current_bytes());
        if (++made.settlements == settlements_a_look) look_back();
    }
    release();
    return was_spread;
}

// Whether the latest settlements were worth it.
void MEM_TALLY::look_back() {
    SHARES& made = *shares.load(std::memory_order_relaxed);
    const std::int64_t charges = sum(&SHARE::cumulative_blocks);
    const bool is_worth_it = charges - made.charges_before >= settlements_a_look * charges_worth_a_settlement;
    made.settlements = 0;
    made.charges_before = charges;
    if (is_worth_it) {
        made.stays = 0;
    } else {
        gather();
    }
}

void MEM_TALLY::give_all_room_to(SHARE& owner) {
    SHARES& made = *shares.load(std::memory_order_relaxed);
    made.blocks.give_all_room_to(owner, made.all, current_blocks());
    made.bytes.give_all_room_to(owner, made.all, current_bytes());
}

// Threads have met at home again and again. Without memory for shares they go on to.
void MEM_TALLY::spread_out() {
    const KEPT_ERRNO errno_is_kept;
    // Made outside the locks, since the allocator may take its time.
    std::unique_ptr<SHARES> fresh(
        shares.load(std::memory_order_relaxed) != nullptr ? nullptr : new (std::nothrow) SHARES);
    const std::lock_guard<MEM_SPIN_LOCK> guard(home.lock);
    home.waits = 0;
    if (shares.load(std::memory_order_relaxed) == nullptr)
        shares.store(fresh.release(), std::memory_order_release);
    SHARES* made = shares.load(std::memory_order_relaxed);
    if (made == nullptr || is_spread() || SHARE::get(home.cumulative_blocks) < made->stay_ends_at) return;
    for_each_share([](SHARE& share) { share.lock.lock(); });
    SHARE::set(made->blocks.highest, highest_blocks());
    SHARE::set(made->bytes.highest, highest_bytes());
    made->settlements = 0;
    made->charges_before = sum(&SHARE::cumulative_blocks);
    home.is_open.store(false, std::memory_order_relaxed);
    give_all_room_to(made->own());
    for_each_share([](SHARE& share) {
        share.is_open.store(true, std::memory_order_relaxed);
        share.lock.unlock();
    });
}

void MEM_TALLY::gather() {
    SHARES& made = *shares.load(std::memory_order_relaxed);
    SHARE::set(home.blocks, current_blocks());
    SHARE::set(home.bytes, current_bytes());
    SHARE::set(home.blocks_limit, highest_blocks());
    SHARE::set(home.bytes_limit, highest_bytes());
    for_each_share([](SHARE& share) {
        SHARE::set(share.blocks, 0);
        SHARE::set(share.bytes, 0);
        share.is_open.store(false, std::memory_order_relaxed);
    });
    made.stay_ends_at = SHARE::get(home.cumulative_blocks) + (shortest_stay << made.stays);
    made.stays = std::min(made.stays + 1, most_doublings);
    home.is_open.store(true, std::memory_order_relaxed);
}

// With all locks held.
void MEM_TALLY::put_highest(std::int64_t bytes, std::int32_t blocks) {
    if (is_spread()) {
        SHARES& made = *shares.load(std::memory_order_relaxed);
        SHARE::set(made.bytes.highest, bytes);
        SHARE::set(made.blocks.highest, blocks);
        give_all_room_to(made.own());
    } else {
        SHARE::set(home.bytes_limit, bytes);
        SHARE::set(home.blocks_limit, blocks);
    }
}

MEMORY_TRACKER_BASE MEM_TALLY::restart_highest(std::int64_t floor) {
    hold();
    const MEMORY_TRACKER_BASE before = held();
    put_highest(std::max(std::min(before.current_bytes, before.max_bytes), floor),
                before.max_blocks == ignored_blocks ? ignored_blocks : before.current_blocks);
    release();
    return before;
}

MEMORY_TRACKER_BASE MEM_TALLY::set_highest_bytes(std::int64_t bytes) {
    hold();
    const MEMORY_TRACKER_BASE before = held();
    put_highest(bytes, before.max_blocks);
    release();
    return before;
}

void MEM_TALLY::ignore_highest_blocks() {
    hold();
    put_highest(highest_bytes(), ignored_blocks);
    release();
}

void MEM_TALLY::clear() {
    const auto clear_share = [](SHARE& share) {
        for (auto counter :
             {&SHARE::bytes, &SHARE::bytes_limit, &SHARE::cumulative_blocks, &SHARE::cumulative_bytes,
              &SHARE::cumulative_requested_bytes, &SHARE::cumulative_mismatched_bytes})
            SHARE::set(share.*counter, 0);
        SHARE::set(share.blocks, 0);
        SHARE::set(share.blocks_limit, 0);
    };
    hold();
    if (is_spread()) gather();
    for_each_share(clear_share);
    clear_share(home);
    if (SHARES* made = shares.load(std::memory_order_relaxed)) made->stay_ends_at = 0;
    release();
}
