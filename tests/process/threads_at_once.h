// Work that begins on many threads at the same moment.
#pragma once

#include <latch>

#include "tests/bins/on_threads.h"

// On the calling thread when the count is 0.
template <class WORK>
void on_threads_at_once(int count, WORK work) {
    if (count == 0) return work();
    std::latch all_there(count);
    on_threads(count, [&](int) { all_there.arrive_and_wait(), work(); });
}
