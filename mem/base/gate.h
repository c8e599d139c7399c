// MEM_CATS_AND_MICE: many mice at once, or one cat alone; an announced cat stops new mice.
//
// Mice are the events and the queries that touch single records; cats walk or rebuild whole tables. Enter
// and leave allocate nothing, and a mouse makes no system call but the yield of a long wait. Not for signal
// handlers.
//
//   enter(MEM_MOUSE):  own stripe + 1; word == 0?  -- yes --> inside
//                                       no: own stripe - 1, wait until word == 0, again
//   enter(MEM_CAT):    word + announced; barrier on all threads; wait until no cat is inside and every stripe
//                      is 0; word + inside; word - announced
//
// Why this excludes: a mouse writes its stripe and then reads the word; a cat writes the word and then reads
// the stripes. Of a mouse and a cat that meet at least one must see the other: either the mouse finds the
// word set and steps back, or the cat finds the stripe counted and waits. Where a stripe is shared, all four
// accesses are sequentially consistent. A mouse with a stripe of its own writes and reads in this order with
// nothing between, and its processor may let the read go first; the cat's barrier, which the system runs on
// the mouse's processor too, comes before the write and the read, after both, or between them. Before: the
// read finds the word set. After: the cat finds the write. Between: the write is out and the cat finds it,
// and the read, which is yet to come, finds the word. A mouse pays nothing for that; cats are few. The word
// never falls to 0 between a cat's announcement and its leaving, because the cat counts itself inside before
// it takes the announcement back; so no mouse slips in. A stripe that a cat has seen at 0 after its
// announcement can only be counted again by mice that step back.
//
// Why a cat gets in: from its announcement on no new mouse enters, and those inside leave. Cats go ahead of
// mice, and among themselves in no fixed order.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/base/stripes.h"

inline constexpr int MEM_MOUSE = 0;
inline constexpr int MEM_CAT = 1;

class MEM_IS_LOCK MEM_CATS_AND_MICE {
  public:
    // A kind other than the two returns at once.
    void enter(int kind) {
        if (kind == MEM_MOUSE) {
            enter_mouse();
        } else if (kind == MEM_CAT) {
            enter_cat();
        }
    }
    // The kind must be the one given to enter, on the same thread.
    void leave(int kind) {
        if (kind == MEM_MOUSE) {
            leave_mouse();
        } else if (kind == MEM_CAT) {
            leave_cat();
        }
    }

    // As a cat, unless mice or another cat stay inside for more looks than that: then false.
    bool enter_cat_soon(std::uint64_t patience);

    // In a forked child of the thread that was inside as a cat: nobody is inside.
    void renew();

    // Exact only while nobody enters or leaves.
    std::int64_t mice() const;
    std::int32_t cats() const;
    std::int32_t cats_approaching() const;

  private:
    static constexpr std::int64_t cat_inside = std::int64_t{1} << 32;

    void enter_mouse() {
        count_mouse(1);
        if (cat_word.load(std::memory_order_seq_cst) != 0) [[unlikely]]
            wait_for_cats();
    }
    void leave_mouse() {
        // Read while this mouse still counts: from the subtraction on a cat may rightly be inside.
        const bool cat_is_inside = cat_word.load(std::memory_order_relaxed) >= cat_inside;
        if (count_mouse(-1) < 0 || cat_is_inside) [[unlikely]]
            report_broken_mouse();
    }
    // Moves the thread's stripe and returns its count. Release: a cat that finds it at 0 sees what the mouse
    // wrote.
    std::int64_t count_mouse(std::int64_t amount) {
        const MEM_THREAD_STRIPE& stripe = mem_thread_stripe();
        std::atomic<std::int64_t>& count = stripes[stripe.index].count;
        if (!stripe.is_own) [[unlikely]]
            return count.fetch_add(amount, std::memory_order_seq_cst) + amount;
        const std::int64_t now = count.load(std::memory_order_relaxed) + amount;
        count.store(now, std::memory_order_release);
        // The compiler, too, is to keep the order that the cat's barrier relies on.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return now;
    }
    void wait_for_cats();
    void report_broken_mouse() const;
    void enter_cat();
    void leave_cat();
    bool try_enter_cat();
    bool no_mouse_inside() const;

    // Upper half: cats inside, 0 or 1. Lower half: cats announced and not yet inside. Read by every event
    // and written by cats alone.
    alignas(64) std::atomic<std::int64_t> cat_word{0};
    MEM_SPIN_LOCK state_lock;  // cats try one at a time
    MEM_STRIPE stripes[mem_stripe_count];
};

// Inside the gate for a scope.
class MEM_IS_LOCK_SCOPE MEM_GATE_SCOPE {
  public:
    MEM_GATE_SCOPE(MEM_CATS_AND_MICE& entered, int as)
    MEM_TAKES_SHARED(entered) MEM_LOCKS_UNCHECKED : gate(entered), kind(as) { gate.enter(kind); }
    ~MEM_GATE_SCOPE() MEM_GIVES_BACK_ANY() MEM_LOCKS_UNCHECKED { gate.leave(kind); }
    MEM_GATE_SCOPE(const MEM_GATE_SCOPE&) = delete;
    MEM_GATE_SCOPE& operator=(const MEM_GATE_SCOPE&) = delete;

  private:
    MEM_CATS_AND_MICE& gate;
    const int kind;
};

// The tracker's one gate, built at its start.
extern MEM_CATS_AND_MICE* mem_tbb_gate;
