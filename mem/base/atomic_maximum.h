// A maximum that several threads raise.
#pragma once

#include <algorithm>
#include <atomic>
#include <type_traits>

// Returns the maximum after it. Relaxed: a maximum orders nothing.
template <class T>
T mem_raise(std::atomic<T>& highest, std::type_identity_t<T> value) {
    T seen = highest.load(std::memory_order_relaxed);
    while (value > seen && !highest.compare_exchange_weak(seen, value, std::memory_order_relaxed)) {
    }
    return std::max(seen, value);
}
