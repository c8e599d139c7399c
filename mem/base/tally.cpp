#include "mem/base/tally.h"

#include <bit>
#include <memory>
#include <mutex>
#include <new>

#include "platform/kept_errno.h"

namespace {

using COUNTS = MEM_TALLY_COUNTS;
using SHARE = MEM_TALLY_SHARE;

// A settlement costs about as much as that many charges at a home where threads meet. When a number of them
// was not worth it, threads meet at home again for a number of charges, which doubles from time to time.
constexpr std::int64_t charges_worth_a_settlement = 12;
constexpr int settlements_a_look = 64;
constexpr std::int64_t shortest_stay = 4096;
constexpr int most_doublings = 10, most_doublings_by_frees = 4;

// As the highest number of blocks, this is out of reach.
constexpr std::int64_t ignored_blocks = std::numeric_limits<std::int64_t>::max();

// to - from, or the nearest value there is.
std::int64_t distance(std::int64_t from, std::int64_t to) {
    std::int64_t result = 0;
    if (!__builtin_sub_overflow(to, from, &result)) return result;
    return to > from ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
}

std::int64_t sum_at_most(std::int64_t count, std::int64_t room) {
    std::int64_t sum = 0;
    return __builtin_add_overflow(count, room, &sum) ? std::numeric_limits<std::int64_t>::max() : sum;
}

std::int32_t nearest_in_32_bits(std::int64_t value) {
    using LIMITS = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, LIMITS::min(), LIMITS::max()));
}

// The shares of the groups that threads have had turns in; the others are empty.
class SHARES_IN_USE {
  public:
    explicit SHARES_IN_USE(SHARE* every_share) : all(every_share) {}

    template <class VISIT>
    void for_each(VISIT visit) const {
        for (std::uint32_t left = mem_turn_groups_in_use(); left != 0; left &= left - 1)
            visit(all[std::countr_zero(left)]);
    }

  private:
    SHARE* all;
};

// The highest sum of a count over all shares, and what each of them may rise to. All shares are held for
// changes; the maximum is atomic for those who only peek.
template <std::atomic<std::int64_t> COUNTS::*COUNT, std::atomic<std::int64_t> SHARE::*LIMIT>
struct MAXIMUM {
    std::atomic<std::int64_t> highest{0};

    // After a charge to a share. The sum is the present one.
    void settle(SHARE& charged, const SHARES_IN_USE& shares, std::int64_t sum) {
        if (even_out(charged, shares)) return;
        SHARE::set(highest, std::max(SHARE::get(highest), sum));
        give_all_room_to(charged, shares, sum);
    }

    // Where the sum is above the highest value already, every share settles at its next charge.
    void give_all_room_to(SHARE& owner, const SHARES_IN_USE& shares, std::int64_t sum) const {
        const std::int64_t all_room = distance(sum, SHARE::get(highest));
        shares.for_each([&](SHARE& share) {
            const bool is_above = all_room < 0;
            SHARE::set(share.*LIMIT,
                       is_above ? std::numeric_limits<std::int64_t>::min() : SHARE::get(share.*COUNT));
        });
        if (all_room > 0) give_room(owner, all_room);
    }

  private:
    static std::int64_t room(const SHARE& share) {
        return distance(SHARE::get(share.*COUNT), SHARE::get(share.*LIMIT));
    }
    static void give_room(SHARE& share, std::int64_t more) {
        SHARE::set(share.*LIMIT, sum_at_most(SHARE::get(share.*LIMIT), more));
    }

    // Gives the share as much room as the one that has most, and more until it is within its limit. False
    // when the others have not enough. A share that settles for want of one count is evened out in both, so
    // that it does not come again at once for want of the other.
    static bool even_out(SHARE& taker, const SHARES_IN_USE& shares) {
        do {
            SHARE* richest = &taker;
            shares.for_each([&](SHARE& share) {
                if (room(share) > room(*richest)) richest = &share;
            });
            const std::int64_t most = room(*richest), mine = room(taker);
            if (most <= 0) break;
            const std::int64_t half = mine < 0 ? most - most / 2 : (most - mine) / 2;
            SHARE::move(*richest.*LIMIT, -half);
            give_room(taker, half);
        } while (room(taker) < 0);
        return room(taker) >= 0;
    }
};

}  // namespace

MEM_TALLY_FIGURES::operator MEMORY_TRACKER_BASE() const {
    MEMORY_TRACKER_BASE record;
    record.current_blocks = nearest_in_32_bits(current_blocks);
    record.max_blocks = nearest_in_32_bits(max_blocks);
    record.cumulative_blocks = cumulative_blocks;
    record.current_bytes = current_bytes;
    record.max_bytes = max_bytes;
    record.cumulative_bytes = cumulative_bytes;
    record.cumulative_requested_bytes = cumulative_requested_bytes;
    record.cumulative_mismatched_bytes = cumulative_mismatched_bytes;
    return record;
}

namespace {

constexpr std::atomic<std::int64_t> COUNTS::*every_count[] = {
    &COUNTS::blocks, &COUNTS::bytes, &COUNTS::cumulative_blocks, &COUNTS::cumulative_bytes,
    &COUNTS::cumulative_requested_bytes};

}  // namespace

void MEM_TALLY_COUNTS::clear() {
    for (const auto count : every_count) set(this->*count, 0);
}

void MEM_TALLY_COUNTS::take_over(MEM_TALLY_COUNTS& from) {
    for (const auto count : every_count) move(this->*count, get(from.*count));
    from.clear();
}

struct MEM_TALLY::SHARES {
    SHARE all[mem_turn_groups];
    MAXIMUM<&COUNTS::blocks, &SHARE::blocks_limit> blocks;
    MAXIMUM<&COUNTS::bytes, &SHARE::bytes_limit> bytes;

    // Guarded by all locks of the tally together.
    int settlements = 0;              // since the latest look back
    std::int64_t charges_before = 0;  // at the latest look back
    int stays = 0;                    // at home, since settlements were last worth it
    std::int64_t stay_ends_at = 0;    // by the charges that came home, or
    std::int64_t frees_end_stay = 0;  // by the frees: these need no room, so that many of them end it sooner

    SHARE& own() { return all[mem_thread_stripe().index % mem_turn_groups]; }
    SHARES_IN_USE in_use() { return SHARES_IN_USE(all); }
};

MEM_TALLY::~MEM_TALLY() {
    delete shares.load(std::memory_order_relaxed);
}

std::int64_t MEM_TALLY::sum(std::atomic<std::int64_t> COUNTS::*counter) const {
    std::int64_t sum = COUNTS::get(home.*counter);
    // Acquire: who sees the shares sees them made.
    if (SHARES* made = shares.load(std::memory_order_acquire))
        made->in_use().for_each([&](const SHARE& share) { sum += COUNTS::get(share.*counter); });
    return sum;
}

std::int64_t MEM_TALLY::highest_bytes() const {
    const SHARES* made = is_spread() ? shares.load(std::memory_order_acquire) : nullptr;
    return COUNTS::get(made != nullptr ? made->bytes.highest : home.highest_bytes);
}
std::int64_t MEM_TALLY::highest_blocks() const {
    const SHARES* made = is_spread() ? shares.load(std::memory_order_acquire) : nullptr;
    return COUNTS::get(made != nullptr ? made->blocks.highest : home.highest_blocks);
}

void MEM_TALLY::hold() {
    mem_hold_turns();
}

MEM_TALLY_FIGURES MEM_TALLY::held() const {
    MEM_TALLY_FIGURES now;
    now.current_blocks = sum(&COUNTS::blocks);
    now.current_bytes = sum(&COUNTS::bytes);
    now.max_blocks = highest_blocks();
    now.max_bytes = highest_bytes();
    now.cumulative_blocks = sum(&COUNTS::cumulative_blocks);
    now.cumulative_bytes = sum(&COUNTS::cumulative_bytes);
    now.cumulative_requested_bytes = sum(&COUNTS::cumulative_requested_bytes);
    now.cumulative_mismatched_bytes = COUNTS::get(mismatched_at_home);
    if (SHARES* made = shares.load(std::memory_order_relaxed))
        made->in_use().for_each([&](const SHARE& share) {
            now.cumulative_mismatched_bytes += SHARE::get(share.cumulative_mismatched_bytes);
        });
    return now;
}

void MEM_TALLY::release() {
    mem_release_turns();
}

void MEM_TALLY::renew_locks() {
    mem_renew_turn_locks();
    home.lock.renew();
}

MEM_TALLY_FIGURES MEM_TALLY::read() {
    const MEM_TURNS_HELD at_rest;
    return held();
}

// Not while charges stay at home because settlements were not worth it.
bool MEM_TALLY::may_spread() const {
    const SHARES* made = shares.load(std::memory_order_relaxed);
    if (made == nullptr) return true;
    const std::int64_t charges = COUNTS::get(home.cumulative_blocks);
    return charges >= made->stay_ends_at || charges - COUNTS::get(home.blocks) >= made->frees_end_stay;
}

// False when charges do not come home for now.
template <class MOVE>
bool MEM_TALLY::try_at_home(MEM_TURN& turn, MOVE move) {
    const bool is_locked = home.lock.enter(turn);
    const bool is_open = !is_spread();
    if (is_open) move();
    const bool spreads = is_open && is_locked && home.lock.is_crowded() && may_spread();
    if (is_locked) home.lock.leave();
    if (spreads) turn.step_out([&] { spread_out(); });
    return is_open;
}

void MEM_TALLY::charge_apart(MEM_TURN& turn, std::uint64_t requested, std::uint64_t allocated) {
    for (bool is_done = false; !is_done;) {
        // Whoever spreads or gathers holds all turns, so that a turn sees a tally whole.
        if (is_spread()) [[likely]] {
            SHARE& own = shares.load(std::memory_order_relaxed)->all[turn.group];
            if (own.has_room_for(allocated)) [[likely]] {
                own.add(requested, allocated);
                return;
            }
            turn.step_out([&] { is_done = settle(requested, allocated); });
        } else {
            is_done = try_at_home(turn, [&] { charge_home(requested, allocated); });
        }
    }
}

void MEM_TALLY::discharge_apart(MEM_TURN& turn, std::uint64_t allocated, std::uint64_t mismatched) {
    while (!is_spread())
        if (try_at_home(turn, [&] { discharge_home(allocated, mismatched); })) return;
    SHARE& own = shares.load(std::memory_order_relaxed)->all[turn.group];
    own.remove(allocated);
    if (mismatched != 0) [[unlikely]]
        SHARE::move(own.cumulative_mismatched_bytes, static_cast<std::int64_t>(mismatched));
}

// A charge that its share has no room for. False when charges come home again.
bool MEM_TALLY::settle(std::uint64_t requested, std::uint64_t allocated) {
    hold();
    const bool was_spread = is_spread();
    if (was_spread) {
        SHARES& made = *shares.load(std::memory_order_relaxed);
        SHARE& own = made.own();
        own.add(requested, allocated);
        made.blocks.settle(own, made.in_use(), sum(&COUNTS::blocks));
        made.bytes.settle(own, made.in_use(), sum(&COUNTS::bytes));
        if (++made.settlements == settlements_a_look) look_back();
    }
    release();
    return was_spread;
}

// Whether the latest settlements were worth it.
void MEM_TALLY::look_back() {
    SHARES& made = *shares.load(std::memory_order_relaxed);
    const std::int64_t charges = sum(&COUNTS::cumulative_blocks);
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
    made.blocks.give_all_room_to(owner, made.in_use(), sum(&COUNTS::blocks));
    made.bytes.give_all_room_to(owner, made.in_use(), sum(&COUNTS::bytes));
}

// Threads have taken turns at home again and again. Without memory for shares they go on to.
void MEM_TALLY::spread_out() {
    const KEPT_ERRNO errno_is_kept;
    // Made outside the locks, since the allocator may take its time.
    std::unique_ptr<SHARES> fresh(
        shares.load(std::memory_order_relaxed) != nullptr ? nullptr : new (std::nothrow) SHARES);
    hold();
    if (shares.load(std::memory_order_relaxed) == nullptr)
        shares.store(fresh.release(), std::memory_order_release);
    SHARES* made = shares.load(std::memory_order_relaxed);
    if (made != nullptr && !is_spread() && may_spread()) {
        COUNTS::set(made->blocks.highest, COUNTS::get(home.highest_blocks));
        COUNTS::set(made->bytes.highest, COUNTS::get(home.highest_bytes));
        made->settlements = 0;
        made->charges_before = sum(&COUNTS::cumulative_blocks);
        home.lock.make_common();
        home.is_spread.store(true, std::memory_order_relaxed);
        give_all_room_to(made->own());
    }
    release();
}

void MEM_TALLY::gather() {
    SHARES& made = *shares.load(std::memory_order_relaxed);
    COUNTS::set(home.highest_blocks, highest_blocks());
    COUNTS::set(home.highest_bytes, highest_bytes());
    made.in_use().for_each([&](SHARE& share) { home.take_over(share); });
    const std::int64_t charges = COUNTS::get(home.cumulative_blocks);
    made.stay_ends_at = charges + (shortest_stay << made.stays);
    made.frees_end_stay =
        charges - COUNTS::get(home.blocks) + (shortest_stay << std::min(made.stays, most_doublings_by_frees));
    made.stays = std::min(made.stays + 1, most_doublings);
    home.is_spread.store(false, std::memory_order_relaxed);
}

// While held.
void MEM_TALLY::put_highest(std::int64_t bytes, std::int64_t blocks) {
    if (is_spread()) {
        SHARES& made = *shares.load(std::memory_order_relaxed);
        COUNTS::set(made.bytes.highest, bytes);
        COUNTS::set(made.blocks.highest, blocks);
        give_all_room_to(made.own());
    } else {
        COUNTS::set(home.highest_bytes, bytes);
        COUNTS::set(home.highest_blocks, blocks);
    }
}

MEM_TALLY_FIGURES MEM_TALLY::restart_highest(std::int64_t floor) {
    hold();
    const MEM_TALLY_FIGURES before = held();
    put_highest(std::max(std::min(before.current_bytes, before.max_bytes), floor),
                before.max_blocks == ignored_blocks ? ignored_blocks : before.current_blocks);
    release();
    return before;
}

MEM_TALLY_FIGURES MEM_TALLY::set_highest_bytes(std::int64_t bytes) {
    hold();
    const MEM_TALLY_FIGURES before = held();
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
    hold();
    if (SHARES* made = shares.load(std::memory_order_relaxed)) {
        if (is_spread()) gather();
        made->in_use().for_each([](SHARE& share) { SHARE::set(share.cumulative_mismatched_bytes, 0); });
        made->stay_ends_at = made->frees_end_stay = 0;
    }
    home.clear();
    COUNTS::set(home.highest_blocks, 0);
    COUNTS::set(home.highest_bytes, 0);
    COUNTS::set(mismatched_at_home, 0);
    release();
}
