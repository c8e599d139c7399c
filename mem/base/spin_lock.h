// MEM_SPIN_LOCK: one byte, zero when free. Short doubling pauses, then the processor is given away.
// Allocates nothing; safe in a hook, but not in a signal handler. Held through MEM_LOCK_SCOPE.
//
// A locked instruction waits until all earlier stores of the thread are done, also those of the program that
// missed the cache; that wait is most of what a lock costs. While the process has one thread, a load and a
// store do.
#pragma once

#include <atomic>

#include "mem/base/thread_safety.h"
#include "platform/thread.h"

// The waiting of every lock here: pauses of 1, 2, 4, 8, 16 steps, then one yield a turn.
class MEM_BACK_OFF {
  public:
    void wait() {
        if (steps > 16) {
            _Thrd_yield();
            return;
        }
        for (int i = 0; i < steps; ++i) __builtin_ia32_pause();
        steps *= 2;
    }

  private:
    int steps = 1;
};

class MEM_IS_LOCK MEM_SPIN_LOCK {
  public:
    void lock() MEM_TAKES() { acquire(); }
    // The same; true when another thread held the lock.
    bool acquire() MEM_TAKES() MEM_LOCKS_UNCHECKED {
        if (process_has_one_thread() && !held.load(std::memory_order_relaxed)) {
            // Nobody to race with.
            held.store(true, std::memory_order_relaxed);
            return false;
        }
        if (!held.exchange(true, std::memory_order_acquire)) [[likely]]
            return false;
        lock_slow();
        return true;
    }
    bool try_lock() MEM_TAKES_IF(true) MEM_LOCKS_UNCHECKED {
        return !held.exchange(true, std::memory_order_acquire);
    }
    void unlock() MEM_GIVES_BACK() MEM_LOCKS_UNCHECKED { held.store(false, std::memory_order_release); }

  private:
    // Waits with a plain read, so that waiting threads share the line in place of stealing it. A call, so
    // that those who need not wait save no registers for it.
    __attribute__((noinline, cold)) void lock_slow() {
        MEM_BACK_OFF back_off;
        do {
            while (held.load(std::memory_order_relaxed)) back_off.wait();
        } while (held.exchange(true, std::memory_order_acquire));
    }

    std::atomic<bool> held{false};
};

// Holds the lock for a scope.
class MEM_IS_LOCK_SCOPE MEM_LOCK_SCOPE {
  public:
    explicit MEM_LOCK_SCOPE(MEM_SPIN_LOCK& taken) MEM_TAKES(taken) : held(taken) { held.lock(); }
    ~MEM_LOCK_SCOPE() MEM_GIVES_BACK() { held.unlock(); }
    MEM_LOCK_SCOPE(const MEM_LOCK_SCOPE&) = delete;
    MEM_LOCK_SCOPE& operator=(const MEM_LOCK_SCOPE&) = delete;

  private:
    MEM_SPIN_LOCK& held;
};
