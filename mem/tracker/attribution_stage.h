// The stage of an event that charges a call site and a module: the one place where a stack is walked.
//
// Lock order: the gate first; then one at a time a part of the address table, the tally of the call site, the
// tally of its module. No lock is held across the walk or a symbol look-up.
#pragma once

#include <cstdint>

#include "platform/stack_walk.h"

struct MEM_CALL_SITE;

// The record of the first frame that is not filtered, or the OTHER record. Inside the gate.
MEM_CALL_SITE& mem_find_call_site(const STACK_WALK_START& start);

void mem_attribute_alloc(std::uint64_t address, std::uint64_t requested, std::uint64_t allocated,
                         std::uint32_t word, bool sampling_point, const STACK_WALK_START& start);
void mem_attribute_dealloc(std::uint64_t address, std::uint64_t allocated, std::uint32_t word,
                           bool sampling_point);
