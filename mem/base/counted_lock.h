// MEM_COUNTED_LOCK: a recursive lock that only counts before its creation and after its deletion. The library
// has one, mem_lock, for the frame: load and unload, the wrapper of threads, running out of memory. Allocates
// nothing. Not for the event path.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/thread_safety.h"
#include "platform/critical_section.h"

class MEM_IS_LOCK MEM_COUNTED_LOCK {
  public:
    // Creates the lock, unless it is created already.
    void create();

    void lock() MEM_TAKES();
    // Does nothing when nobody holds the lock, so that a release after the deletion is harmless.
    void unlock() MEM_GIVES_BACK();
    // Releases every hold of the calling thread, which holds the lock.
    void unlock_all();

    // Releases every hold of the calling thread, which holds the lock, and deletes it. Who waits for it goes
    // on as without a lock.
    void release_and_delete();

    // In a forked child: the lock as after its creation, whoever held it in the parent.
    void renew();

    bool is_created() const { return initialised.load(std::memory_order_relaxed); }
    std::uint32_t depth() const { return lock_count.load(std::memory_order_relaxed); }

  private:
    CRITICAL_SECTION critical_section = {};
    // Relaxed: the lock itself guards both, and while there is none nothing does.
    std::atomic<bool> initialised{false};
    std::atomic<std::uint32_t> lock_count{0};
};

extern MEM_COUNTED_LOCK mem_lock;

// Creates mem_lock at the first call in the process, and never again. From then on it is fresh in each forked
// child.
void mem_create_lock();
