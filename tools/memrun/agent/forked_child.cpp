#include "tools/memrun/agent/forked_child.h"

#include <pthread.h>
#include <unistd.h>

#include "ktl_mem/running_reports.h"
#include "ktl_mem/services.h"
#include "ktl_mem/tracking.h"
#include "platform/kept_errno.h"
#include "tools/memrun/agent/control_page.h"
#include "tools/memrun/agent/end_signals.h"
#include "tools/memrun/agent/launcher_link.h"
#include "tools/memrun/agent/note.h"

namespace memrun::agent {

namespace {

Orders* followed = nullptr;
bool is_child = false;

// What the forking thread holds between the handlers of a fork.
struct Fork {
    bool is_begun = false;  // in a tracked process
    bool are_wishes_held = false;
    bool was_blocked = false;
};
constinit thread_local Fork fork_of_thread __attribute__((tls_model("initial-exec")));

// The tracker leaves a child alone whose thread blocks its tracking.
void before_fork() {
    const KEPT_ERRNO errno_is_kept;
    Fork& fork = fork_of_thread;
    fork.is_begun = getpid() == followed->owner;
    if (!fork.is_begun) return;
    fork.are_wishes_held = hold_wishes();
    if (!fork.are_wishes_held) fork.was_blocked = mem_block_thread_tracking() != 0;
}

void let_go() {
    const Fork& fork = fork_of_thread;
    if (!fork.is_begun) return;
    if (fork.are_wishes_held)
        release_wishes();
    else if (!fork.was_blocked)
        mem_unblock_thread_tracking();
}

void introduce_child(const MEM_TRACKING_FIGURES& inherited) {
    renew_end();
    take_over_orders(*followed);
    begin_note(*followed);
    append_note(*followed, "forked %lld %lld\n", static_cast<long long>(inherited.current_bytes),
                static_cast<long long>(inherited.current_blocks));
    join_launcher(*followed);
    mem_set_tbb_exe_string(followed->word);
}

void in_child() {
    const KEPT_ERRNO errno_is_kept;
    let_go();
    MEM_TRACKING_FIGURES inherited;
    if (!fork_of_thread.is_begun || !mem_get_tracking_figures(inherited)) return;
    const int was_blocked = mem_block_thread_tracking();
    is_child = true;
    introduce_child(inherited);
    if (was_blocked == 0) mem_unblock_thread_tracking();
}

}  // namespace

void follow_forks(Orders& orders) {
    followed = &orders;
    pthread_atfork(before_fork, let_go, in_child);
}

void note_exec_of_child(bool is_begun) {
    const KEPT_ERRNO errno_is_kept;
    if (is_child && getpid() == followed->owner) append_note(*followed, is_begun ? "left\n" : "stayed\n");
}

}  // namespace memrun::agent
