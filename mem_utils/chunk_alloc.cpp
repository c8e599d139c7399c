#include "ktl_mem/chunk_alloc.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "ktl_mem/out_of_memory.h"
#include "ktl_mem/services.h"
#include "mem/base/messages.h"

namespace {

constexpr std::uint64_t size_of_empty_block = 8;
constexpr std::uint32_t oversize_warning_limit = 500;

bool is_chunking_configured() {
    static const bool enabled = !mem_cfg_is_on("mem_utils_no_chunk_allocation", false);
    return enabled;
}

void* allocate_zeroed(std::uint64_t size) {
    if (size == 0) size = size_of_empty_block;
    void* const block = std::malloc(size);
    if (block == nullptr) mem_out_of_memory();
    return std::memset(block, 0, size);
}

}  // namespace

MEM_UTILS_CHUNK_ALLOC::MEM_UTILS_CHUNK_ALLOC() : chunking_enabled(is_chunking_configured()) {}

MEM_UTILS_CHUNK_ALLOC::~MEM_UTILS_CHUNK_ALLOC() {
    delete_nodes();
}

void* MEM_UTILS_CHUNK_ALLOC::allocate_slow(std::uint64_t size, std::uint64_t alignment) {
    if (!chunking_enabled) return allocate_zeroed(size);
    if (size > mem_utils_chunk_size) {
        void* const block = allocate_private_block(size, alignment);
        warn_of_oversize();
        return block;
    }
    if (remaining < fragment_threshold) return allocate_in_new_chunk(size);
    return allocate_private_block(size, alignment);
}

// The block is listed before anything is done with it, so that it can't be lost.
void* MEM_UTILS_CHUNK_ALLOC::allocate_listed(std::uint64_t size) {
    std::unique_ptr<NODE> node(new (std::nothrow) NODE{});
    if (node == nullptr) mem_out_of_memory();
    node->block = allocate_zeroed(size);
    node->next = allocations;
    allocations = node.release();
    return allocations->block;
}

void* MEM_UTILS_CHUNK_ALLOC::allocate_private_block(std::uint64_t size, std::uint64_t alignment) {
    std::uint64_t total = 0;
    if (__builtin_add_overflow(size, alignment, &total)) mem_out_of_memory();
    const auto address = reinterpret_cast<std::uint64_t>(allocate_listed(total));
    return reinterpret_cast<void*>(address + pad_to(address, alignment));
}

void* MEM_UTILS_CHUNK_ALLOC::allocate_in_new_chunk(std::uint64_t size) {
    void* const chunk = allocate_listed(mem_utils_chunk_size);
    next_free = reinterpret_cast<std::uint64_t>(chunk) + size;
    remaining = mem_utils_chunk_size - size;
    return chunk;
}

void MEM_UTILS_CHUNK_ALLOC::warn_of_oversize() {
    if (++oversize_count > oversize_warning_limit)
        mem_msg_debug(
            "WARNING: More than %d chunk allocations have failed because they are bigger than one chunk size "
            "in ktl/mem_utils\n",
            static_cast<int>(oversize_warning_limit));
}

void MEM_UTILS_CHUNK_ALLOC::chunk_free_memory() {
    for (const NODE* node = allocations; node != nullptr; node = node->next) std::free(node->block);
    delete_nodes();
    remaining = 0;
    next_free = 0;
    oversize_count = 0;
}

void MEM_UTILS_CHUNK_ALLOC::delete_nodes() {
    while (allocations != nullptr) delete std::exchange(allocations, allocations->next);
}

void MEM_UTILS_CHUNK_ALLOC::chunk_delete_when_chunking_disabled(void* block) {
    if (!chunking_enabled) std::free(block);
}
