#include "mem/base/address_table.h"

#include <mutex>

#include "mem/base/pool_turn.h"
#include "mem/base/profiler_counters.h"
#include "mem/base/scarcity.h"
#include "platform/mapped_memory.h"

MEM_ADDRESS_TABLE* mem_address_table = nullptr;

namespace {

constexpr std::size_t smallest_mapped = 3 * 4096;

}  // namespace

void* MEM_ARRAY_SOURCE::allocate(std::size_t bytes) {
    if (!mem_has_room_for(bytes)) return nullptr;
    if (bytes < smallest_mapped) {
        const std::lock_guard<MEM_SPIN_LOCK> turn(mem_pool_turn);
        return pool->malloc(bytes);
    }
    void* const memory = map_memory(bytes);
    if (memory != nullptr) mem_tbb_profiler_counters.count_alloc(bytes, bytes);
    return memory;
}

void MEM_ARRAY_SOURCE::release(void* memory, std::size_t bytes) {
    if (bytes < smallest_mapped) {
        const std::lock_guard<MEM_SPIN_LOCK> turn(mem_pool_turn);
        pool->free(memory);
    } else {
        unmap_memory(memory, bytes);
        mem_tbb_profiler_counters.count_dealloc(bytes);
    }
}
