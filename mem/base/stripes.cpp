#include "mem/base/stripes.h"

#include <bit>

#include "platform/thread.h"

constinit thread_local MEM_THREAD_STRIPE mem_thread_stripe_of_this;

namespace {

// A bit for each stripe that a thread has for itself. The first stripe is for all who find none.
constexpr std::uint64_t shared_stripe = 1;
constinit std::atomic<std::uint64_t> taken{shared_stripe};

// For an exiting thread. What it still does shares the first stripe: one that it took again might stay its
// own for good, since nobody says when a thread really ends.
void give_back() {
    MEM_THREAD_STRIPE& stripe = mem_thread_stripe_of_this;
    // Release: the next owner finds the counts as this thread left them.
    if (stripe.is_own) taken.fetch_and(~(std::uint64_t{1} << stripe.index), std::memory_order_release);
    stripe.index = 0;
    stripe.is_own = false;
}

std::uint32_t take_own() {
    std::uint64_t before = taken.load(std::memory_order_relaxed);
    while (~before != 0) {
        const std::uint64_t with_lowest_free = before | (before + 1);
        if (taken.compare_exchange_weak(before, with_lowest_free, std::memory_order_acquire))
            return static_cast<std::uint32_t>(std::countr_one(before));
    }
    return 0;
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
