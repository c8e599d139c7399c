// What changes the tracker and must not stop half way.
#pragma once

#include <new>
#include <utility>

#include "ktl_mem/out_of_memory.h"
#include "mem/base/thread_state.h"

// Runs action, whose allocations are no events. Memory that runs out in it ends the process, with its
// reports: a peak without its call sites, or rows that stand beside the wrong ones of another report, would
// be shown as if they were true. By then the locks are given back.
template <class ACTION>
void mem_change_wholly(ACTION&& action) {
    try {
        const MEM_LOCKED_CALL_SCOPE not_an_event;
        std::forward<ACTION>(action)();
    } catch (const std::bad_alloc&) {
        mem_out_of_memory();
    }
}
