// The numbers of events, and which of them are sampling points.
//
// One counter numbers all events, but a thread takes its numbers a few at a time, so that threads hardly ever
// meet at the counter. With one thread every event has the number that it would have without; with more, the
// numbers are as unique and the sampling points as many, and a thread may hold on to a handful of numbers.
#pragma once

#include <cstdint>

// Numbers that the calling thread holds.
extern constinit thread_local std::uint32_t mem_event_numbers_left __attribute__((tls_model("initial-exec")));

bool mem_take_event_numbers();

// Takes the number of one event; true when it is a multiple of the sampling period. A batch never reaches
// beyond the next multiple, so only the first number of a batch can be one.
inline bool mem_take_event_number() {
    if (mem_event_numbers_left == 0) [[unlikely]]
        return mem_take_event_numbers();
    --mem_event_numbers_left;
    return false;
}
