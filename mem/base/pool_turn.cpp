#include "mem/base/pool_turn.h"

#include "platform/process_life.h"

constinit MEM_SPIN_LOCK mem_pool_turn;

namespace {

constinit thread_local bool turn_is_held __attribute__((tls_model("initial-exec"))) = false;

// Not for ever: the thread whose turn it is may wait for a lock that another library's fork handler has taken
// on this very thread. A fork must not hang for the sake of a child that might.
void take_turn() {
    constexpr int patience = 10'000;
    MEM_BACK_OFF back_off;
    for (int i = 0; i < patience && !turn_is_held; ++i) {
        turn_is_held = mem_pool_turn.try_lock();
        if (!turn_is_held) back_off.wait();
    }
}

void give_turn_back() {
    if (turn_is_held) mem_pool_turn.unlock();
    turn_is_held = false;
}

}  // namespace

void mem_hold_pool_turn_at_forks() {
    run_around_fork(take_turn, give_turn_back, give_turn_back);
}
