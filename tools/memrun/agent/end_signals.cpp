#include "tools/memrun/agent/end_signals.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>

#include "tools/memrun/agent/interrupted_code.h"
#include "tools/memrun/agent/real_signals.h"
#include "tools/memrun/agent/reports.h"

namespace memrun::agent {

namespace {

constexpr std::array<int, 4> end_signals = {SIGINT, SIGTERM, SIGHUP, SIGABRT};

// A thread inside the allocator or the tracker goes on, and is looked at again after a moment. After the last
// look the reports are written all the same: what was seen on its stack were then leftovers.
constexpr int most_looks = 5000;

// Should the writing come to a stand, the process still dies by its signal.
constexpr time_t longest_writing_s = 60;

const Orders* watched = nullptr;
std::atomic<int> looks{0};
std::atomic<pid_t> ending_thread{0};
std::atomic<int> ending_signal{0};  // 0 while an exit goes on
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

// From 1 to 3 ms, and different from look to look: looks that keep step with the scheduler would find a
// thread that waits for its turn in the same place each time.
long look_again_ns() {
    return 1'000'000 + looks * 617'023L % 2'000'000;
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

// A signal that comes while reports are written: one that meets an exit has its way after it; copies of the
// first, which whole process groups get, mean nothing; a further Ctrl-C means that the user has no more
// patience.
void on_signal_while_ending(int signo, const siginfo_t& info) {
    if (is_written) die_by(signo);
    int none = 0;
    if (ending_signal.compare_exchange_strong(none, signo)) {
        send_later(signo, {longest_writing_s, 0}, Reminder::time_is_over);
        return;
    }
    const bool is_impatience = info.si_code == SI_KERNEL && signo == SIGINT;
    const bool is_time_over =
        info.si_code == SI_TIMER && info.si_value.sival_int == static_cast<int>(Reminder::time_is_over);
    if (is_impatience || is_time_over) die_by(signo);
}

void write_and_die(int signo) {
    if (!claim_end()) return;
    ending_signal = signo;
    send_later(signo, {longest_writing_s, 0}, Reminder::time_is_over);
    char how[16];
    std::snprintf(how, sizeof how, "%d", signo);
    write_reports(*watched, how);
    die_by(signo);
}

// The allocator throws with its locks given back, so an exception that nobody catches can come out of it; an
// abort without one can be the allocator's own.
bool can_abort_here(const void* context) {
    return std::current_exception() != nullptr || can_be_left(context);
}

void on_end_signal(int signo, siginfo_t* info, void* context) {
    const int saved_errno = errno;
    if (getpid() != watched->owner) die_by(signo);
    if (ending_thread != 0)
        on_signal_while_ending(signo, *info);
    else if (signo == SIGABRT ? can_abort_here(context) : can_be_left(context) || ++looks > most_looks)
        write_and_die(signo);
    else if (signo != SIGABRT)  // abort() ends the process by itself when the handler returns
        send_later(signo, {0, look_again_ns()}, Reminder::look_again);
    errno = saved_errno;
}

}  // namespace

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
    for (const int end_signal : end_signals)
        if (end_signal == signo) return true;
    return false;
}

void watch_end_signals(const Orders& orders) {
    find_guarded_code();
    watched = &orders;
    for (const int signo : end_signals) {
        struct sigaction found;
        const struct sigaction stand_in = default_stand_in();
        if (real_sigaction(signo, nullptr, &found) == 0 && found.sa_handler == SIG_DFL)
            real_sigaction(signo, &stand_in, nullptr);
    }
}

bool claim_end() {
    pid_t expected = 0;
    if (ending_thread.compare_exchange_strong(expected, this_thread())) return true;
    if (expected == this_thread()) return false;
    for (;;) pause();
}

void finish_end() {
    is_written = true;
    if (ending_signal != 0) die_by(ending_signal);
}

}  // namespace memrun::agent
