// The stage of an event that charges a call site and a module: the one place where a stack is walked. It runs
// inside the gate, as a mouse, together with all else that the event charges.
//
// Lock order: the gate first, then a turn (mem/base/turns.h); in the turn one at a time a part of the address
// table, the account of the path, the tally of the call site, the tally of its module. No lock is held
// across a walk, and neither a lock nor the gate across a symbol look-up: that waits for other look-ups and
// for the loader, whose own allocations come here, too.
#pragma once

#include <cstdint>

#include "mem/paths/account_figures.h"
#include "platform/stack_walk.h"

class MEM_ADDRESS_ENTRY;
class MEM_TURN;
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

// The record that an allocation with this path, or none, is charged to; null when program counters have to be
// named first.
MEM_CALL_SITE* mem_find_call_site_of(std::uint32_t account, const STACK_WALK_START& start);

// found: null where they can't be named.
void mem_attribute_alloc(MEM_TURN& turn, MEM_CALL_SITE* found, MEM_ALLOCATION& made);

// Returns the number of bin and tag that the block's entry held, or 0.
std::uint32_t mem_attribute_dealloc(MEM_TURN& turn, std::uint64_t address, std::uint64_t allocated,
                                    std::uint32_t word, bool sampling_point);
