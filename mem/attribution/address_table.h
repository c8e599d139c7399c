// MEM_ADDRESS_TABLE: from the address of a live block to the call site and the thread that it is charged to.
// Used inside the gate, and cleared by a cat. The block's size is not kept: the allocator tells it at the
// free.
#pragma once

#include <cstdint>

#include "mem/attribution/call_sites.h"
#include "mem/base/address_map.h"
#include "mem/base/pool_turn.h"
#include "mem/base/tracker_pool.h"

struct MEM_ADDRESS_ENTRY {
    std::uint32_t call_site;  // MEM_CALL_SITE::number: with the address an entry is 16 bytes
    std::uint32_t thread_id;  // of the allocating thread while call sites were tracked, else 0
};

struct MEM_POOL_SOURCE {
    MEM_TRACKER_POOL* pool;

    void* allocate(std::size_t bytes) {
        const std::lock_guard<MEM_SPIN_LOCK> turn(mem_pool_turn);
        void* memory = pool->malloc(bytes);
        if (memory == nullptr) throw std::bad_alloc();
        return memory;
    }
    void release(void* memory, std::size_t) {
        const std::lock_guard<MEM_SPIN_LOCK> turn(mem_pool_turn);
        pool->free(memory);
    }
};

using MEM_ADDRESS_TABLE = MEM_ADDRESS_MAP<MEM_ADDRESS_ENTRY, MEM_POOL_SOURCE>;
extern MEM_ADDRESS_TABLE* mem_address_table;
