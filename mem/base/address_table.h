// MEM_ADDRESS_TABLE: from the address of a live block to the call site or path and the thread that it is
// charged to, and to the bin and the tag that it was allocated under. Charges are used inside the gate and
// forgotten by a cat; bins and tags anywhere, and a reset leaves them alone. The block's size is not kept:
// the allocator knows it at the free.
#pragma once

#include "mem/base/address_map.h"
#include "mem/base/tracker_pool.h"

// Small arrays come from the tracker's pool. Large ones come from the system and go back to it at once when
// they are outgrown; they count as the tracker's own memory like those of the pool.
struct MEM_ARRAY_SOURCE {
    MEM_TRACKER_POOL* pool;

    void* allocate(std::size_t bytes);
    void release(void* memory, std::size_t bytes);
};

using MEM_ADDRESS_TABLE = MEM_ADDRESS_MAP<MEM_ARRAY_SOURCE>;
extern MEM_ADDRESS_TABLE* mem_address_table;
