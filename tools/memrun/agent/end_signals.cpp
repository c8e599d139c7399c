#include "tools/memrun/agent/end_signals.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>

#include "platform/kept_errno.h"
#include "tools/memrun/agent/control_page.h"
#include "tools/memrun/agent/guarded_code.h"
#include "tools/memrun/agent/real_signals.h"
#include "tools/memrun/agent/reports.h"

namespace memrun::agent {

namespace {

constexpr std::array<int, 4> end_signals = {SIGINT, SIGTERM, SIGHUP, SIGABRT};

// Ignored by default, so that it harms nobody who does not know it.
constexpr int wish_signal = control::wish_signal;

// A signal that meets a thread inside the allocator or the tracker leaves the end to the next allocation or
// free of any thread. Should there be none, the thread is looked at again, each time a millisecond later than
// before, 20 s in all. Who stays inside for that long will not come out; the tracker then has its own word on
// that.
constexpr int most_looks = 200;
constexpr long look_step_ns = 1'000'000;

// Should the writing come to a stand, the process still dies by its signal.
constexpr time_t longest_writing_s = 60;

const Orders* watched = nullptr;
std::atomic<int> looks{0};
std::atomic<pid_t> ending_thread{0};
std::atomic<pid_t> exiting_thread{0};  // the first that has called exit
std::atomic<bool> is_written{false};

pid_t this_thread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

[[noreturn]] void die_by(int signo) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    real_sigaction(signo, &action, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signo);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(signo);
    _exit(128 + signo);
}

enum class Reminder : int { look_again, time_is_over };

// Sends `signo` to this thread again after a time.
void send_later(int signo, timespec delay, Reminder reminder) {
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = signo;
    event.sigev_value.sival_int = static_cast<int>(reminder);
    event._sigev_un._tid = this_thread();
    timer_t timer;
    const itimerspec once = {{0, 0}, delay};
    if (timer_create(CLOCK_MONOTONIC, &event, &timer) == 0) timer_settime(timer, 0, &once, nullptr);
}

bool is_reminder(const siginfo_t& info, Reminder reminder) {
    return info.si_code == SI_TIMER && info.si_value.sival_int == static_cast<int>(reminder);
}

// Copies of the first signal, which whole process groups get, mean nothing; a further Ctrl-C means that the
// user has no more patience.
bool is_patience_over(int signo, const siginfo_t& info) {
    const bool is_further_interrupt = is_end_due() && signo == SIGINT && info.si_code == SI_KERNEL;
    return is_further_interrupt || is_reminder(info, Reminder::time_is_over);
}

bool try_claim_end() {
    pid_t nobody = 0;
    return ending_thread.compare_exchange_strong(nobody, this_thread());
}

// A thread that finds the end claimed goes on until it comes: it may hold what the writing of reports waits
// for.
void write_and_die(int signo) {
    if (!try_claim_end()) return;
    ending_signal = signo;
    send_later(signo, {longest_writing_s, 0}, Reminder::time_is_over);
    char how[16];
    std::snprintf(how, sizeof how, "%d", signo);
    write_reports(*watched, how);
    die_by(signo);
}

// The allocator throws with its locks given back, so an exception that nobody catches can come out of it; an
// abort without one can be the allocator's own. abort() ends the process by itself when the handler returns,
// so who aborts while another thread writes the reports stays here.
void on_abort() {
    if (std::current_exception() == nullptr && is_in_guarded_code()) return;
    write_and_die(SIGABRT);
    for (;;) pause();
}

// A signal that meets an exit has its way after it.
void on_request(int signo, const siginfo_t& info) {
    int none = 0;
    const bool is_first = ending_signal.compare_exchange_strong(none, signo);
    if (ending_thread != 0) {
        if (is_first) send_later(signo, {longest_writing_s, 0}, Reminder::time_is_over);
    } else if (!is_in_guarded_code() || looks == most_looks) {
        write_and_die(signo);
    } else if (is_first || is_reminder(info, Reminder::look_again)) {
        send_later(signo, {0, ++looks * look_step_ns}, Reminder::look_again);
    }
}

void on_end_signal(int signo, siginfo_t* info, void*) {
    const KEPT_ERRNO errno_is_kept;
    if (signo == wish_signal) return fulfil_in_signal();
    if (getpid() != watched->owner || is_written || is_patience_over(signo, *info)) die_by(signo);
    if (signo != SIGABRT)
        on_request(signo, *info);
    else if (ending_thread != this_thread())
        on_abort();
}

void take_over(int signo) {
    struct sigaction found;
    const struct sigaction stand_in = default_stand_in();
    if (real_sigaction(signo, nullptr, &found) == 0 && found.sa_handler == SIG_DFL)
        real_sigaction(signo, &stand_in, nullptr);
}

}  // namespace

constinit std::atomic<int> ending_signal{0};

void end_in_hook() {
    if (ending_thread != 0 || getpid() != watched->owner || is_in_guarded_code_beyond_hook()) return;
    write_and_die(ending_signal);
}

struct sigaction default_stand_in() {
    struct sigaction action = {};
    action.sa_sigaction = on_end_signal;
    // The signal stays open while it is handled: a second one and the end of patience must come through.
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_NODEFER;
    return action;
}

bool is_stand_in(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_end_signal;
}

bool is_watched(int signo) {
    if (watched == nullptr || getpid() != watched->owner) return false;
    return signo == wish_signal ||
           std::find(end_signals.begin(), end_signals.end(), signo) != end_signals.end();
}

void watch_end_signals(const Orders& orders) {
    find_guarded_code();
    watched = &orders;
    for (const int signo : end_signals) take_over(signo);
    take_over(wish_signal);
}

bool claim_end() {
    if (try_claim_end()) return true;
    if (ending_thread == this_thread()) return false;
    for (;;) pause();
}

void await_turn_to_exit() {
    pid_t nobody = 0;
    if (exiting_thread.compare_exchange_strong(nobody, this_thread()) || nobody == this_thread()) return;
    constexpr timespec turn = {0, 1'000'000};
    for (int turns_left = 1000; turns_left > 0;) {
        nanosleep(&turn, nullptr);
        if (ending_thread == 0 || is_written) --turns_left;
    }
}

void finish_end() {
    is_written = true;
    if (is_end_due()) die_by(ending_signal);
}

void renew_end() {
    ending_signal = 0;
    ending_thread = 0;
    exiting_thread = 0;
    looks = 0;
    is_written = false;
}

void wait_for_end() {
    constexpr timespec turn = {0, 1'000'000};
    while (!is_written && ending_thread != this_thread()) nanosleep(&turn, nullptr);
}

}  // namespace memrun::agent
