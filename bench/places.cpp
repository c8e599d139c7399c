#include "bench/places.h"

#include <cstdlib>
#include <utility>

namespace {

// A place of its own in the code for each PLACE; the empty statement keeps them apart and no call from being
// a jump.
template <int PLACE>
__attribute__((noinline)) void* allocate(std::size_t size) {
    void* block = std::malloc(size);
    asm volatile("" : : "r"(block), "i"(PLACE) : "memory");
    return block;
}

template <int... PLACE>
constexpr std::array<ALLOCATE, sizeof...(PLACE)> all_places(std::integer_sequence<int, PLACE...>) {
    return {allocate<PLACE>...};
}

}  // namespace

const std::array<ALLOCATE, most_places> places =
    all_places(std::make_integer_sequence<int, static_cast<int>(most_places)>());
