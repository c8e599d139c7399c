// Threads as the C runtime of the native system names them. Safe in an allocator hook.
#pragma once

#include <sys/single_threaded.h>

#include <cstdint>

// 0 until the thread has asked for its id.
extern constinit thread_local std::uint32_t thread_id_kept __attribute__((tls_model("initial-exec")));
std::uint32_t ask_thread_id();

// The kernel's id of the calling thread, never 0. Kept per thread: no system call after the first, and
// renewed in a forked child.
inline std::uint32_t _Thrd_id() {
    return thread_id_kept != 0 ? thread_id_kept : ask_thread_id();
}

// Whether a thread of this process, other than the calling one, has not ended yet.
bool is_thread_of_process(std::uint32_t id);

// Lets no request to cancel the calling thread act while it lives. An allocation is no place where a thread
// may be cancelled, but what an allocator hook reads and writes would make it one.
class THREAD_NOT_CANCELLED {
  public:
    THREAD_NOT_CANCELLED();
    ~THREAD_NOT_CANCELLED();
    THREAD_NOT_CANCELLED(const THREAD_NOT_CANCELLED&) = delete;
    THREAD_NOT_CANCELLED& operator=(const THREAD_NOT_CANCELLED&) = delete;

  private:
    int state_before = 0;
};

// Gives the processor to another thread that can run.
void _Thrd_yield();

// Sleeps for a millisecond. No cancellation point, and errno stays.
void _Thrd_rest();

// Has every thread of the process run a full memory barrier before this returns: as if each of them had one
// at some point of its own program between call and return. A system call. False for the question means that
// the system has no such call, and that it does nothing; the answer is found once, and then stays.
bool can_run_barrier_on_all_threads();
void barrier_on_all_threads();

// Has the action run when the calling thread ends; a call in the course of that end has it run again, a few
// times at most. There are four actions at most, for all threads together. False when it cannot be had.
bool run_at_thread_exit(void (*action)());

// True while the process has never had a second thread, as far as the C library knows: nobody else can write
// what the caller reads. Starting a thread makes it false before the new thread runs, and is ordered after
// all that the caller did.
inline bool process_has_one_thread() {
    return __libc_single_threaded != 0;
}
