// Fill patterns: a byte of the user's choice over each new block, and over each block about to be freed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mem/base/tracking_word.h"

// Sets the patterns and opens the allocation log as the configuration says; the last step of the tracker's
// start.
void mem_load_debug_patterns();

// The hooks, as the allocator calls them: a null block, of a failed allocation, is no block.
void mem_alloc_pattern_hook(const void* block, std::size_t size);
void mem_free_pattern_hook(const void* block);

// Whether the hook of a pattern is to be detached, and what the pattern is.
extern MEM_PLAIN_WORD<std::uint8_t> mem_alloc_pattern_set;
extern MEM_PLAIN_WORD<std::int32_t> mem_alloc_pattern_value;
extern MEM_PLAIN_WORD<std::uint8_t> mem_free_pattern_set;
extern MEM_PLAIN_WORD<std::int32_t> mem_free_pattern_value;
