// The per-thread block of the library. It lies in static thread-local storage with a constant image, so
// that it can be read on any thread at any moment with one instruction, without a call or an allocation.
#pragma once

#include <cstdint>

struct MEM_THREAD_STATE {
    bool in_tracker = false;         // inside an event body, or a call that holds locks of the tracker
    bool log_allowed = true;         // the allocation log may write a line now
    bool tracking_blocked = false;   // allocations of this thread are not to be attributed
    bool does_own_work = false;      // what this thread allocates is the library's
    bool writes_reports = false;     // this thread writes those of the process's end
    bool holds_gate = false;         // this thread holds the gate as a cat while it writes the reports
    void* reserve_buffer = nullptr;  // this thread's reserve for running out of memory, or null
};

extern constinit thread_local MEM_THREAD_STATE mem_thread_state __attribute__((tls_model("initial-exec")));

// Around the library's own work outside an event: holds tracking_blocked set, and puts it back as it was
// found, so that scopes nest.
class MEM_BLOCK_TRACKING_SCOPE {
  public:
    MEM_BLOCK_TRACKING_SCOPE()
        : was_blocked(mem_thread_state.tracking_blocked), did_own_work(mem_thread_state.does_own_work) {
        mem_thread_state.tracking_blocked = true;
        mem_thread_state.does_own_work = true;
    }
    ~MEM_BLOCK_TRACKING_SCOPE() {
        mem_thread_state.tracking_blocked = was_blocked;
        mem_thread_state.does_own_work = did_own_work;
    }
    MEM_BLOCK_TRACKING_SCOPE(const MEM_BLOCK_TRACKING_SCOPE&) = delete;
    MEM_BLOCK_TRACKING_SCOPE& operator=(const MEM_BLOCK_TRACKING_SCOPE&) = delete;

  private:
    const bool was_blocked;
    const bool did_own_work;
};

// Around a call that allocates, or writes to a stream of the host, while it holds locks of the tracker.
// Nothing inside is an event, and a process that ends inside, by an exit or for lack of memory, is known to
// hold locks that it cannot wait for.
class MEM_LOCKED_CALL_SCOPE {
  public:
    MEM_LOCKED_CALL_SCOPE() : was_in_tracker(mem_thread_state.in_tracker) {
        mem_thread_state.in_tracker = true;
    }
    ~MEM_LOCKED_CALL_SCOPE() { mem_thread_state.in_tracker = was_in_tracker; }
    MEM_LOCKED_CALL_SCOPE(const MEM_LOCKED_CALL_SCOPE&) = delete;
    MEM_LOCKED_CALL_SCOPE& operator=(const MEM_LOCKED_CALL_SCOPE&) = delete;

  private:
    const MEM_BLOCK_TRACKING_SCOPE blocked;
    const bool was_in_tracker;
};

// Holds in_tracker set for a scope that is not inside an event already.
class MEM_IN_TRACKER_SCOPE {
  public:
    MEM_IN_TRACKER_SCOPE() { mem_thread_state.in_tracker = true; }
    ~MEM_IN_TRACKER_SCOPE() { mem_thread_state.in_tracker = false; }
    MEM_IN_TRACKER_SCOPE(const MEM_IN_TRACKER_SCOPE&) = delete;
    MEM_IN_TRACKER_SCOPE& operator=(const MEM_IN_TRACKER_SCOPE&) = delete;
};
