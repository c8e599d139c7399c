// The numbers of events, and which of them are sampling points.
//
// One counter numbers all events, but a thread takes its numbers a few at a time, so that threads hardly ever
// meet at the counter. What is left of them lies with the thread's stripe, and so goes to the next thread
// when this one ends. With one thread every event has the number that it would have without; with more, the
// numbers are as unique and the sampling points as many, and each running thread may hold on to a handful of
// numbers.
#pragma once

#include <cstdint>

#include "mem/base/stripes.h"

// Numbers that the owner of a stripe holds. Those who share a stripe hold none.
struct alignas(64) MEM_HELD_EVENT_NUMBERS {
    std::uint32_t left = 0;
};
extern constinit MEM_HELD_EVENT_NUMBERS mem_held_event_numbers[mem_stripe_count];

bool mem_take_event_numbers(const MEM_THREAD_STRIPE& stripe);

// How many events have numbers. Exact with one thread; other threads hold on to numbers that count here.
std::uint64_t mem_events_numbered();

// Takes the number of one event; true when it is a multiple of the sampling period. A batch never reaches
// beyond the next multiple, so only the first number of a batch can be one.
inline bool mem_take_event_number() {
    const MEM_THREAD_STRIPE& stripe = mem_thread_stripe();
    std::uint32_t& left = mem_held_event_numbers[stripe.index].left;
    if (!stripe.is_own || left == 0) [[unlikely]]
        return mem_take_event_numbers(stripe);
    --left;
    return false;
}
