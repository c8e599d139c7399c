// MEM_BIN_TAG_SHARDS: under which bin and tag each live block was allocated, by the block's address. Safe
// from any thread and inside an event, without the gate. A reset leaves it alone.
#pragma once

#include <oneapi/tbb/tbb_allocator.h>

#include <cstdint>

#include "mem/base/address_map.h"
#include "mem/base/pool_turn.h"

struct MEM_BIN_TAG_ENTRY {
    std::uint32_t bin_id = 0;
    std::uint32_t tag_id = 0;
};

// The shards are the parts of the map, by a hash of the address: blocks are aligned, so its low bits alone
// would leave most shards empty.
struct MEM_SHARD_SOURCE {
    void* allocate(std::size_t bytes) {
        const std::lock_guard<MEM_SPIN_LOCK> turn(mem_pool_turn);
        return tbb::tbb_allocator<char>().allocate(bytes);
    }
    void release(void* memory, std::size_t bytes) {
        const std::lock_guard<MEM_SPIN_LOCK> turn(mem_pool_turn);
        tbb::tbb_allocator<char>().deallocate(static_cast<char*>(memory), bytes);
    }
};

using MEM_BIN_TAG_SHARDS = MEM_ADDRESS_MAP<MEM_BIN_TAG_ENTRY, MEM_SHARD_SOURCE, 4096>;

extern MEM_BIN_TAG_SHARDS* mem_bin_tag_shards;
