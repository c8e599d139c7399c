#include "mem/base/stripes.h"

#include <bit>

#include "platform/thread.h"

constinit thread_local MEM_THREAD_STRIPE mem_thread_stripe_of_this;

namespace {

// A bit for each stripe that a thread has for itself. The first stripe is for all who find none.
constexpr std::uint64_t shared_stripe = 1;
constinit std::atomic<std::uint64_t> taken{shared_stripe};
// The thread that has it; 0 while nobody says so. Cleared ahead of the bit.
constinit std::atomic<std::uint32_t> owners[mem_stripe_count];

void free_stripe(std::uint32_t index) {
    // Release: the next owner finds the counts as the last one left them.
    taken.fetch_and(~(std::uint64_t{1} << index), std::memory_order_release);
}

// For an exiting thread. What it still does shares the first stripe: one that it took again might stay its
// own for good, since nobody says when a thread really ends.
void give_back() {
    MEM_THREAD_STRIPE& stripe = mem_thread_stripe_of_this;
    if (stripe.is_own) {
        owners[stripe.index].store(0, std::memory_order_relaxed);
        free_stripe(stripe.index);
    }
    stripe.index = 0;
    stripe.is_own = false;
}

// Threads whose first event came after their last key destructor have not given theirs back.
void free_stripes_of_the_dead() {
    for (std::uint32_t index = 1; index < mem_stripe_count; ++index) {
        std::uint32_t owner = owners[index].load(std::memory_order_relaxed);
        if (owner == 0 || is_thread_of_process(owner)) continue;
        if (owners[index].compare_exchange_strong(owner, 0, std::memory_order_relaxed)) free_stripe(index);
    }
}

std::uint32_t take_free() {
    std::uint64_t before = taken.load(std::memory_order_relaxed);
    while (~before != 0) {
        const std::uint64_t with_lowest_free = before | (before + 1);
        if (taken.compare_exchange_weak(before, with_lowest_free, std::memory_order_acquire))
            return static_cast<std::uint32_t>(std::countr_one(before));
    }
    return 0;
}

std::uint32_t take_own() {
    std::uint32_t index = take_free();
    if (index == 0) {
        free_stripes_of_the_dead();
        index = take_free();
    }
    if (index != 0) owners[index].store(_Thrd_id(), std::memory_order_relaxed);
    return index;
}

std::uint32_t take_in_turn() {
    static constinit std::atomic<std::uint32_t> next{0};
    return next.fetch_add(1, std::memory_order_relaxed) % mem_stripe_count;
}

}  // namespace

void mem_take_thread_stripe() {
    MEM_THREAD_STRIPE& stripe = mem_thread_stripe_of_this;
    if (can_run_barrier_on_all_threads()) {
        stripe.index = take_own();
        stripe.is_own = stripe.index != 0 && run_at_thread_exit(give_back);
    } else {
        stripe.index = take_in_turn();
    }
    stripe.is_taken = true;
}
