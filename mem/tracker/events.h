// The two event bodies. Every allocation and every free that is tracked comes through here, on whichever
// thread makes it, with in_tracker set.
//
//   hook or notification
//     mem_tbb_track_alloc                     mem_tbb_track_dealloc
//       a word that only counts?                a word that only counts?
//         number the event                        number the event
//         join the statistics, done               leave the statistics, done
//       mem_track_alloc_fully                   mem_track_dealloc_fully
//         number the event                        peak test  .................... cold: record_peak, as a cat
//         as a mouse, all at one moment:          number the event
//           mem_attribute_alloc                   sampling point?  .............. cold: the tags, as a cat
//             walk, find the call site  . cold:   as a mouse, all at one moment:
//               leave, name it, again               mem_attribute_dealloc
//             charge it, enter the block            leave the statistics
//             charge the module                     take the block off its bin and tag
//           charge bin and tag                      take the size off the total
//           join the statistics                   sampling point?  .............. cold: samples
//           add the size to the total
//         sampling point?  .......... cold: samples
//
// What finds no memory in one of them is left out or charged to what cannot be attributed, and the process
// goes on (mem/base/scarcity.h). Neither throws, changes errno, takes a lock for longer than it moves a
// record's counters, or calls the loader.
#pragma once

#include <cstdint>

#include "mem/base/stats.h"
#include "mem/base/tracking_word.h"
#include "mem/tracker/event_numbers.h"
#include "platform/stack_walk.h"

// word: the tracking word as the event has read it, once.
void mem_track_alloc_fully(std::uint64_t address, std::uint64_t requested, std::uint64_t allocated,
                           std::uint32_t word, const STACK_WALK_START& start);
void mem_track_dealloc_fully(std::uint64_t address, std::uint64_t allocated, std::uint32_t word);

// Under such a word events are numbered and move the statistics. Nothing is looked up, and no event is a
// sampling point for anybody.
inline bool mem_word_only_counts(std::uint32_t word) {
    return word != 0 && (word & ~mem_stats_bits) == 0;
}

// start: where the stack of the caller begins (a hook's own return address and what lies behind it).
inline void mem_tbb_track_alloc(std::uint64_t address, std::uint64_t requested, std::uint64_t allocated,
                                const STACK_WALK_START& start) {
    const std::uint32_t word = mem_tracking_word;
    if (!mem_word_only_counts(word)) {
        mem_track_alloc_fully(address, requested, allocated, word, start);
        return;
    }
    mem_take_event_number();
    mem_stats_add_block(allocated);
}

inline void mem_tbb_track_dealloc(std::uint64_t address, std::uint64_t allocated) {
    const std::uint32_t word = mem_tracking_word;
    if (!mem_word_only_counts(word)) {
        mem_track_dealloc_fully(address, allocated, word);
        return;
    }
    mem_take_event_number();
    mem_stats_remove_block(allocated);
}

// A row of the timeline of the tags. Not inside of the gate.
void mem_sample_tags();

// Ahead of the bodies: bring what they will look up towards the processor, while the allocator is asked for
// the block's size. That memory is cold, and waiting for it would be the largest single cost of an event.
void mem_expect_alloc(std::uint64_t address);
void mem_expect_dealloc(std::uint64_t address);
