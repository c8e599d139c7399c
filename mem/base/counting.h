// Counters that threads share, and what they cost a process that has one thread.
//
// A locked instruction waits until all earlier stores of the thread are done, also those of the program that
// missed the cache. That wait is the largest part of what counting costs. Where nobody else can look, a load
// and a store do.
#pragma once

#include <atomic>

#include "platform/thread.h"

// Adds, and returns the sum.
template <class T>
T mem_add(std::atomic<T>& counter, T amount, std::memory_order order = std::memory_order_relaxed) {
    if (!process_has_one_thread()) return counter.fetch_add(amount, order) + amount;
    const T sum = counter.load(std::memory_order_relaxed) + amount;
    counter.store(sum, std::memory_order_relaxed);
    return sum;
}
