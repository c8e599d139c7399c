// What the tracker does so that a process without memory still ends on whole reports.
//
//   while it tracks      a reserve of mapped memory is held, which nobody touches
//   a table must grow    it asks first; when the system has no more than the tracker needs to go on, what the
//                        table would hold is not attributed
//   an allocation of     the new handler gives a part of the reserve back, and the allocation is tried again
//   the tracker fails
//   reports are written  the rest is given back, and threads that would take it wait (mem/tracker/hooks.h)
#pragma once

#include <cstddef>

#include "mem/base/tracking_word.h"

// Memory has run out somewhere in the process, or nearly.
extern constinit MEM_PLAIN_WORD<bool> mem_memory_is_scarce;

// Maps the reserve, unless it is held or memory is scarce already. Not in a hook.
void mem_hold_reserve();

// Gives a part of it back to the system; false when none is left. Safe in a hook.
bool mem_spend_reserve();
// Gives all of it back.
void mem_release_reserve();

// Whether the system would give so many bytes now, and as much again as the tracker needs to go on. Makes two
// system calls; of small pieces only one in many does. When not, memory is scarce from now on.
bool mem_has_room_for(std::size_t bytes);

// The same for one sample of the timelines.
bool mem_has_room_for_a_sample();
