#include "mem/base/gate.h"

#include <mutex>

#include "mem/base/internal_error.h"
#include "platform/thread.h"

MEM_CATS_AND_MICE* mem_tbb_gate = nullptr;

std::int64_t MEM_CATS_AND_MICE::mice() const {
    std::int64_t sum = 0;
    for (const MEM_STRIPE& stripe : stripes) sum += stripe.count.load(std::memory_order_seq_cst);
    return sum;
}

std::int32_t MEM_CATS_AND_MICE::cats() const {
    return static_cast<std::int32_t>(cat_word.load(std::memory_order_seq_cst) >> 32);
}

std::int32_t MEM_CATS_AND_MICE::cats_approaching() const {
    return static_cast<std::int32_t>(cat_word.load(std::memory_order_seq_cst) & (cat_inside - 1));
}

void MEM_CATS_AND_MICE::wait_for_cats() {
    do {
        count_mouse(-1);
        MEM_BACK_OFF back_off;
        while (cat_word.load(std::memory_order_relaxed) != 0) back_off.wait();
        count_mouse(1);
    } while (cat_word.load(std::memory_order_seq_cst) != 0);
}

void MEM_CATS_AND_MICE::report_broken_mouse() const {
    mem_require(cats() == 0, mem_conditions::no_cat_beside_mouse);
    mem_require(false, mem_conditions::mouse_was_inside);
}

bool MEM_CATS_AND_MICE::no_mouse_inside() const {
    for (const MEM_STRIPE& stripe : stripes)
        if (stripe.count.load(std::memory_order_seq_cst) != 0) return false;
    return true;
}

bool MEM_CATS_AND_MICE::try_enter_cat() {
    const std::lock_guard<MEM_SPIN_LOCK> guard(state_lock);
    if (cats() != 0 || !no_mouse_inside()) return false;
    cat_word.fetch_add(cat_inside, std::memory_order_seq_cst);
    return true;
}

void MEM_CATS_AND_MICE::enter_cat() {
    enter_cat_soon(UINT64_MAX);
}

bool MEM_CATS_AND_MICE::enter_cat_soon(std::uint64_t patience) {
    cat_word.fetch_add(1, std::memory_order_seq_cst);
    barrier_on_all_threads();
    MEM_BACK_OFF back_off;
    bool is_inside = try_enter_cat();
    for (; patience != 0 && !is_inside; --patience) {
        back_off.wait();
        is_inside = try_enter_cat();
    }
    cat_word.fetch_sub(1, std::memory_order_seq_cst);
    mem_require(cats_approaching() >= 0, mem_conditions::cat_was_approaching);
    return is_inside;
}

// Mice that were about to step back are counted for good.
void MEM_CATS_AND_MICE::renew() MEM_LOCKS_UNCHECKED {
    for (MEM_STRIPE& stripe : stripes) stripe.count.store(0, std::memory_order_relaxed);
    cat_word.store(0, std::memory_order_relaxed);
    state_lock.unlock();
}

void MEM_CATS_AND_MICE::leave_cat() {
    const std::lock_guard<MEM_SPIN_LOCK> guard(state_lock);
    const std::int64_t before = cat_word.fetch_sub(cat_inside, std::memory_order_release);
    if (before >= cat_inside) return;
    // Nobody had entered. While a cat is inside, stripes are counted by mice that step back, so that only
    // here their sum tells of a mouse inside.
    mem_require(mice() == 0, mem_conditions::no_mouse_beside_cat);
    mem_require(false, mem_conditions::cat_was_alone);
}
