#include "mem/frame/reserves.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "ktl_mem/out_of_memory.h"
#include "mem/base/thread_state.h"

constinit std::atomic<bool> mem_in_out_of_memory{false};

namespace {

constexpr std::size_t reserve_bytes = 4096;

// Exchanged, so that of two threads that free it one does: inside the tracker no lock is taken for it.
constinit std::atomic<void*> mem_global_reserve{nullptr};

void* allocate_reserve() {
    void* const block = std::malloc(reserve_bytes);
    if (block == nullptr) mem_out_of_memory();
    return std::memset(block, 0, reserve_bytes);
}

}  // namespace

void mem_allocate_reserve_buffers() {
    if (mem_in_out_of_memory) return;
    if (mem_thread_state.reserve_buffer == nullptr) mem_thread_state.reserve_buffer = allocate_reserve();
    if (mem_global_reserve == nullptr) std::free(mem_global_reserve.exchange(allocate_reserve()));
}

void mem_free_reserve_buffers() {
    std::free(std::exchange(mem_thread_state.reserve_buffer, nullptr));
    std::free(mem_global_reserve.exchange(nullptr));
}
