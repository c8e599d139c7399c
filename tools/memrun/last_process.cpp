#include "tools/memrun/last_process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

#include "tools/memrun/notes.h"
#include "tools/memrun/survivors.h"

namespace memrun {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto step = std::chrono::milliseconds(50);
constexpr auto grace = std::chrono::seconds(1);

volatile std::sig_atomic_t is_told_to_leave = 0;

void heed_signals() {
    struct sigaction action = {};
    action.sa_handler = [](int) { is_told_to_leave = 1; };
    for (const int signo : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(signo, &action, nullptr);
}

void reap(const control::Processes& ended) {
    for (const auto& process : ended) waitpid(process->pid, nullptr, WNOHANG);
}

// Whether there is a forked child that has not said yet that it is tracked, or never will.
bool is_one_silent(const control::Followed& followed, int launched_pid, const std::string& program) {
    std::vector<ProcessNote> known(1);
    known.front().pid = launched_pid;
    known.front().program = program;
    for (const control::Processes& processes : {followed.ended(), followed.running()})
        for (const auto& process : processes) known.emplace_back().pid = process->pid;
    return std::ranges::any_of(find_survivors(launched_pid, known), &Survivor::is_fork);
}

void tell_of_wait(const control::Processes& running) {
    std::cerr << "ktl_memrun: the program has ended; waiting for " << running.size()
              << (running.size() == 1 ? " process" : " processes") << " of it, up to Ctrl-C or SIGTERM"
              << std::endl;
}

}  // namespace

void adopt_orphans() {
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

void wait_for_last_process(const control::Followed& followed, int launched_pid, const std::string& program,
                           bool is_quiet) {
    heed_signals();
    bool is_told = is_quiet;
    Clock::time_point deadline = Clock::time_point::max();
    Clock::time_point last_seen = Clock::now();
    while (Clock::now() < deadline) {
        reap(followed.ended());
        const control::Processes running = followed.running();
        if (!running.empty()) {
            last_seen = Clock::now();
            if (!is_told) tell_of_wait(running);
            is_told = true;
        } else if (Clock::now() > last_seen + grace || !is_one_silent(followed, launched_pid, program)) {
            break;
        }
        if (is_told_to_leave != 0 && deadline == Clock::time_point::max()) deadline = Clock::now() + grace;
        std::this_thread::sleep_for(step);
    }
    reap(followed.ended());
}

}  // namespace memrun
