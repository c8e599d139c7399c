// The two event bodies. Every allocation and every free that is tracked comes through here, on whichever
// thread makes it, with in_tracker set.
//
//   hook or notification
//     mem_tbb_track_alloc                     mem_tbb_track_dealloc
//       number the event                        peak test  ...................... cold: record_peak, as a cat
//       mem_attribute_alloc, as a mouse         number the event
//         walk, find the call site  ... cold:   mem_attribute_dealloc, as a mouse
//           a new program counter               leave the statistics
//         charge it, enter the block            take the block off its bin and tag
//         charge the module                     sampling point?  ................ cold: samples
//       charge bin and tag                      take the size off the total
//       sampling point?  ... cold: samples
//       join the statistics
//       add the size to the total
//
// Memory that runs out in one of them ends the process (mem/tracker/whole_change.h). Neither throws, takes a
// lock for longer than it moves a record's counters, or calls the loader.
#pragma once

#include <cstdint>

#include "platform/stack_walk.h"

// start: where the stack of the caller begins (a hook's own return address and what lies behind it).
void mem_tbb_track_alloc(std::uint64_t address, std::uint64_t requested, std::uint64_t allocated,
                         const STACK_WALK_START& start);
void mem_tbb_track_dealloc(std::uint64_t address, std::uint64_t allocated);

// Ahead of the bodies: bring what they will look up towards the processor, while the allocator is asked for
// the block's size. That memory is cold, and waiting for it would be the largest single cost of an event.
void mem_expect_alloc(std::uint64_t address);
void mem_expect_dealloc(std::uint64_t address);
