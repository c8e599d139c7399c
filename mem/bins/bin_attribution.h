// The stages of an event that charge a block to a bin and a tag, and take it off them. The event path calls
// them while bins and tags are tracked; the tables must exist. `bytes` is the allocated size.
#pragma once

#include <cstdint>

class MEM_TURN;

// The number of the bin and the tag that are current now, which the table by address keeps.
std::uint32_t mem_current_bin_and_tag();

void mem_charge_bin_and_tag(MEM_TURN& turn, std::uint32_t number, std::uint64_t bytes);

// Off those that the block was charged to, or off "Root" when that is not known (0).
void mem_discharge_bin_and_tag(MEM_TURN& turn, std::uint32_t number, std::uint64_t bytes);
