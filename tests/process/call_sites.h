// Allocations from many places of the program, on many threads.
#pragma once

#include <array>
#include <atomic>
#include <cstdlib>
#include <utility>

#include "tests/process/kept.h"

// A call site of its own for each number.
template <int NUMBER>
__attribute__((noinline)) void* allocate_at() {
    return kept(std::malloc(static_cast<std::size_t>(16 + NUMBER)));
}

constexpr std::size_t site_count = 64;
template <int FIRST>
constexpr auto sites_from = []<int... NUMBER>(std::integer_sequence<int, NUMBER...>) {
    return std::array{allocate_at<FIRST + NUMBER>...};
}
(std::make_integer_sequence<int, site_count>());

inline std::atomic<std::size_t> blocks_put{0};

// Blocks change hands: a thread frees what another one has put into the place.
inline void put_a_block() {
    static std::array<std::atomic<void*>, 512> places{};
    const std::size_t number = ++blocks_put;
    std::free(places[number * 7919 % places.size()].exchange(sites_from<0>[number / 512 % site_count]()));
}
