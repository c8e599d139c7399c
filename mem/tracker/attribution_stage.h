// The stage of an event that charges a call site and a module: the one place where a stack is walked. It runs
// inside the gate, as a mouse, together with all else that the event charges.
//
// Lock order: the gate first; then one at a time a part of the address table, the account of the path,
// the tally of the call site, the tally of its module. No lock is held across a walk, and neither a lock nor
// the gate across a symbol look-up: that waits for other look-ups and for the loader, whose own allocations
// come here, too.
#pragma once

#include <cstdint>

#include "mem/paths/account_figures.h"
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

// An allocation as it is charged. account: of its path, none without one. bins: the number of bin and tag
// that goes into the block's entry, or 0; the stage sets it to 0 when there was no memory for an entry.
struct MEM_ALLOCATION {
    MEM_PATH_BLOCK block;
    std::uint32_t word;
    std::uint32_t account;
    std::uint32_t bins;
    bool sampling_point;
};

// The account of a stack's path, if the word asks for paths. Outside of the gate.
std::uint32_t mem_find_path(std::uint32_t word, const STACK_WALK_START& start);

// False, and nothing is charged, when program counters have to be named first. Who has tried that in vain
// says that they can't be.
bool mem_attribute_alloc(MEM_ALLOCATION& made, const STACK_WALK_START& start, bool may_be_named);

// Returns the number of bin and tag that the block's entry held, or 0.
std::uint32_t mem_attribute_dealloc(std::uint64_t address, std::uint64_t allocated, std::uint32_t word,
                                    bool sampling_point);
