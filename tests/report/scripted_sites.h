// Call sites for events with made-up addresses and sizes. Their lines stand in the expected reports.
#pragma once

#include <cstdint>

struct BLOCK {
    std::uint64_t address;
    std::uint64_t requested;
    std::uint64_t allocated;
};

void read_codes(const BLOCK& block);
void build_index(const BLOCK& block);
// By way of a function that is filtered.
void look_up(const BLOCK& block);
// From a stack with a filtered function and nothing else.
void mem_without_caller(const BLOCK& block);

void free_block(const BLOCK& block);
