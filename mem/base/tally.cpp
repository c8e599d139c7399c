#include "mem/base/tally.h"

#include <memory>
#include <mutex>
#include <new>

#include "mem/base/stripes.h"

namespace {

using SHARE = MEM_TALLY_SHARE;

constexpr std::uint32_t share_count = 16;

// A settlement costs about as much as that many charges to a share. When one after the other comes sooner,
// the shares are not worth it: for a number of charges, which doubles from time to time, threads meet at home
// again.
constexpr std::int64_t charges_worth_a_settlement = 64;
constexpr int most_early_settlements = 8;
constexpr std::int64_t shortest_stay = 1024;
constexpr int most_doublings = 10;

// A share that saw so many settlements without a charge gets nothing when limits are dealt out.
constexpr std::uint8_t many_idle = 4;

// As the highest number of blocks, this is out of reach.
constexpr std::int32_t ignored_blocks = std::numeric_limits<std::int32_t>::max();

bool is_in_use(const SHARE& share) {
    return share.idle < many_idle;
}

template <class T>
T plus_at_most(T count, T part) {
    T sum = 0;
    return __builtin_add_overflow(count, part, &sum) ? std::numeric_limits<T>::max() : sum;
}

// What each of the shares in use may rise by, so that all together stay below the highest value.
template <class T>
T part_of_room(T highest, T current, int users) {
    if (highest <= current || users == 0) return 0;
    T room = 0;
    if (__builtin_sub_overflow(highest, current, &room)) room = std::numeric_limits<T>::max();
    return room / users;
}

}  // namespace

struct MEM_TALLY::SHARES {
    SHARE all[share_count];

    // Guarded by all locks of the tally together; the maxima are atomic for those who only peek.
    std::atomic<std::int32_t> highest_blocks{0};
    std::atomic<std::int64_t> highest_bytes{0};
    std::int64_t charges_settled = 0;
    int early_settlements = 0;
    int stays = 0;
    std::int64_t stay_ends_at = 0;  // by the charges that came home

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
    return made != nullptr ? SHARE::get(made->highest_bytes) : SHARE::get(home.bytes_limit);
}
std::int32_t MEM_TALLY::highest_blocks() const {
    const SHARES* made = is_spread() ? shares.load(std::memory_order_acquire) : nullptr;
    return made != nullptr ? SHARE::get(made->highest_blocks) : SHARE::get(home.blocks_limit);
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
            own.idle = 0;
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
        for_each_share([](SHARE& share) {
            if (is_in_use(share)) ++share.idle;
        });
        made.own().idle = 0;
        made.own().add(requested, allocated);
        SHARE::set(made.highest_blocks, std::max(highest_blocks(), current_blocks()));
        SHARE::set(made.highest_bytes, std::max(highest_bytes(), current_bytes()));
        const std::int64_t charges = sum(&SHARE::cumulative_blocks);
        const bool is_early = charges - made.charges_settled < charges_worth_a_settlement;
        made.charges_settled = charges;
        made.early_settlements = is_early ? made.early_settlements + 1 : 0;
        if (made.early_settlements < most_early_settlements) {
            deal_out();
        } else {
            gather();
        }
    }
    release();
    return was_spread;
}

void MEM_TALLY::deal_out() {
    int users = 0;
    for_each_share([&](const SHARE& share) { users += is_in_use(share) ? 1 : 0; });
    const std::int32_t blocks = part_of_room(highest_blocks(), current_blocks(), users);
    const std::int64_t bytes = part_of_room(highest_bytes(), current_bytes(), users);
    for_each_share([&](SHARE& share) {
        const bool in_use = is_in_use(share);
        SHARE::set(share.blocks_limit, plus_at_most(SHARE::get(share.blocks), in_use ? blocks : 0));
        SHARE::set(share.bytes_limit, plus_at_most(SHARE::get(share.bytes), in_use ? bytes : 0));
    });
}

// Threads have met at home again and again. Without memory for shares they go on to.
void MEM_TALLY::spread_out() {
    // Made outside the locks, since the allocator may take its time.
    std::unique_ptr<SHARES> fresh(
        shares.load(std::memory_order_relaxed) != nullptr ? nullptr : new (std::nothrow) SHARES);
    home.lock.lock();
    if (shares.load(std::memory_order_relaxed) == nullptr)
        shares.store(fresh.release(), std::memory_order_release);
    for_each_share([](SHARE& share) { share.lock.lock(); });
    home.waits = 0;
    SHARES* made = shares.load(std::memory_order_relaxed);
    if (made != nullptr && !is_spread() && SHARE::get(home.cumulative_blocks) >= made->stay_ends_at) {
        SHARE::set(made->highest_blocks, highest_blocks());
        SHARE::set(made->highest_bytes, highest_bytes());
        made->charges_settled = sum(&SHARE::cumulative_blocks);
        made->early_settlements = 0;
        for_each_share([](SHARE& share) {
            share.idle = many_idle;
            share.is_open.store(true, std::memory_order_relaxed);
        });
        made->own().idle = 0;
        home.is_open.store(false, std::memory_order_relaxed);
        deal_out();
    }
    release();
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
        SHARE::set(made.highest_bytes, bytes);
        SHARE::set(made.highest_blocks, blocks);
        deal_out();
    } else {
        SHARE::set(home.bytes_limit, bytes);
        SHARE::set(home.blocks_limit, blocks);
    }
}

MEMORY_TRACKER_BASE MEM_TALLY::restart_highest(std::int64_t floor) {
    hold();
    const MEMORY_TRACKER_BASE before = held();
    put_highest(std::max(before.current_bytes, floor),
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
