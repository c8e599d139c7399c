// SIGINT, SIGTERM, SIGHUP and SIGABRT that the program does not handle: reports are written, then the process
// dies by the signal. An abort is among them because it is how a program ends whose memory ran out. The
// handler is hidden from the program, which sees the default disposition (signal_view.cpp).
#pragma once

#include <atomic>
#include <csignal>

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// Takes over those of them that have the default disposition. `orders` must stay.
void watch_end_signals(const Orders& orders);

// True for one of them, in the process that watches them.
bool is_watched(int signo);

// The disposition that stands for the default one, and whether a disposition is that one.
struct sigaction default_stand_in();
bool is_stand_in(const struct sigaction& action);

// The signal that this process is to end by, once it came; 0 before that.
extern std::atomic<int> ending_signal;

// True once the process is to end: hooks of the allocator then call end_in_hook. Relaxed, for nothing else is
// read with it, and a hook that sees it late leaves the end to the next one.
inline bool is_end_due() {
    return ending_signal.load(std::memory_order_relaxed) != 0;
}

// Ends the process by that signal, unless this thread is inside the tracker, or the process already ends.
[[gnu::cold, gnu::noinline]] void end_in_hook();

// Claims the end of the process for the calling thread. False when it has it already, as when memory runs out
// while reports are written; does not return while another thread has it, since that one ends the process.
bool claim_end();

// The thread that has claimed an ordinary end says that the reports are written. A signal that came meanwhile
// ends the process now; a later one does so at once.
void finish_end();

// In a forked child that is tracked: nobody ends it yet.
void renew_end();

// Of threads that call exit at once the first goes ahead. The others stay until it has written the reports
// and ended the process; not for ever, since its exit actions may wait for one of them.
void await_turn_to_exit();

// Returns once the thread that has claimed an ordinary end, or is about to, has said that.
void wait_for_end();

}  // namespace memrun::agent
