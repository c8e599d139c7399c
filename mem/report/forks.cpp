#include "mem/report/forks.h"

#include "mem/base/gate.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/base/tracking_word.h"
#include "mem/debug/allocation_log.h"
#include "mem/paths/call_paths.h"
#include "mem/paths/thread_stack.h"
#include "mem/report/report_files.h"
#include "mem/report/shutdown.h"
#include "mem/tracker/fork_gate.h"
#include "platform/mapped_memory.h"
#include "platform/process_life.h"

namespace {

// What the forking thread holds between the handlers of a fork.
struct HELD {
    bool is_held = false;
    std::uint32_t word = 0;  // in the child the word itself is cleared
    int paths = -1;          // a copy of the call paths, when they are shared with another process
};
constinit thread_local HELD held __attribute__((tls_model("initial-exec")));

// Not for ever: a thread may wait inside for a lock that another library's fork handler has taken on this
// very thread. A fork must not hang for the sake of a child that might.
constexpr int patience = 100'000;

bool can_follow() {
    return mem_fork_gate != nullptr && mem_tbb_tracker_is_inited() && !mem_tbb_tracker_has_ended() &&
           !mem_thread_state.in_tracker && !mem_thread_state.tracking_blocked && !mem_thread_state.holds_gate;
}

bool hold_reports() {
    MEM_BACK_OFF back_off;
    for (int turn = 0; turn < patience; ++turn) {
        if (mem_report_mutex.try_lock()) return true;
        back_off.wait();
    }
    return false;
}

bool are_paths_shared() {
    return mem_tbb_call_paths != nullptr && mem_tbb_call_paths->place().is_shared();
}

// Nobody is in the middle of an event or of reports until the fork is over.
void hold_all() {
    if (!can_follow() || !hold_reports()) return;
    if (!mem_fork_gate->enter_cat_soon(patience)) {
        mem_report_mutex.unlock();
        return;
    }
    held.is_held = true;
    held.word = mem_tracking_word;
    held.paths = are_paths_shared() ? mem_tbb_call_paths->place().copy_shared() : -1;
}

void release_in_parent() {
    if (!held.is_held) return;
    held.is_held = false;
    if (held.paths >= 0) close_shared_memory(held.paths);
    mem_fork_gate->leave(MEM_CAT);
    mem_report_mutex.unlock();
}

bool has_paths_of_its_own() {
    return !are_paths_shared() || (held.paths >= 0 && mem_tbb_call_paths->place().move_to(held.paths));
}

void go_on_in_child() {
    if (!held.is_held) return mem_abandon_tracking_in_child();
    held.is_held = false;
    mem_report_mutex.unlock();
    mem_renew_thread_stacks();
    mem_forget_allocation_log();
    if (!has_paths_of_its_own()) return mem_abandon_tracking_in_child();
    mem_fork_gate->renew();
    mem_tracking_word = held.word;
}

}  // namespace

void mem_guard_forks() {
    clear_in_forked_child(&mem_tracking_word, sizeof mem_tracking_word);
    run_around_fork(hold_all, release_in_parent, go_on_in_child);
}
