// The stages of an event that charge a block to a bin and a tag, and take it off them. The event path calls
// them while bins and tags are tracked; tables and shards must exist. `bytes` is the allocated size.
#pragma once

#include <cstdint>

// To the bin and the tag that are current now.
void mem_charge_bin_and_tag(std::uint64_t address, std::uint64_t bytes);

// Off the bin and the tag that the block was charged to, or off "Root" when that is not known.
void mem_discharge_bin_and_tag(std::uint64_t address, std::uint64_t bytes);
