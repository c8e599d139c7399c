// Work that begins on many threads at the same moment.
#pragma once

#include <latch>
#include <thread>
#include <vector>

// On the calling thread when the count is 0.
template <class WORK>
void on_threads_at_once(int count, WORK work) {
    if (count == 0) return work();
    std::latch all_there(count);
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) threads.emplace_back([&] { all_there.arrive_and_wait(), work(); });
}
