// The stage of an event that charges a call site and a module: the one place where a stack is walked.
//
// Lock order: the gate first; then one at a time a part of the address table, the account of the path,
// the tally of the call site, the tally of its module. No lock is held across a walk, and neither a lock nor
// the gate across a symbol look-up: that waits for other look-ups and for the loader, whose own allocations
// come here, too.
#pragma once

#include <cstdint>

#include "platform/stack_walk.h"

class MEM_ADDRESS_ENTRY;
struct MEM_CALL_SITE;

// The record of the first frame that is not filtered, or the OTHER record; null when the way there leads
// through a program counter without a record. Inside the gate.
MEM_CALL_SITE* mem_find_call_site(const STACK_WALK_START& start);

// Gives each program counter on the way there a record. Outside of the gate. False when memory is too scarce
// for that: the block is then charged to the OTHER record.
bool mem_name_call_sites(const STACK_WALK_START& start);

// The record that a block is charged to. Inside the gate.
MEM_CALL_SITE& mem_call_site_of(const MEM_ADDRESS_ENTRY& entry);

// bins: the number of bin and tag that goes into the block's entry, or 0. Both return what stands there,
// which is 0 when there was no memory for an entry.
std::uint32_t mem_attribute_alloc(std::uint64_t address, std::uint64_t requested, std::uint64_t allocated,
                                  std::uint32_t word, bool sampling_point, std::uint32_t bins,
                                  const STACK_WALK_START& start);
std::uint32_t mem_attribute_dealloc(std::uint64_t address, std::uint64_t allocated, std::uint32_t word,
                                    bool sampling_point);
