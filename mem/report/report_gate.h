// The gate as a report takes it.
#pragma once

#include "mem/base/gate.h"
#include "mem/base/thread_state.h"

// Alone in the gate for a scope. The shut-down holds the gate around all of its reports; there this does
// nothing.
class MEM_REPORT_GATE {
  public:
    MEM_REPORT_GATE() : entered(!mem_thread_state.holds_gate) {
        if (!entered) return;
        mem_tbb_gate->enter(MEM_CAT);
        mem_thread_state.holds_gate = true;
    }
    ~MEM_REPORT_GATE() {
        if (!entered) return;
        mem_thread_state.holds_gate = false;
        mem_tbb_gate->leave(MEM_CAT);
    }
    MEM_REPORT_GATE(const MEM_REPORT_GATE&) = delete;
    MEM_REPORT_GATE& operator=(const MEM_REPORT_GATE&) = delete;

  private:
    const bool entered;
};
