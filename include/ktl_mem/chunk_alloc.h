// MEM_UTILS_CHUNK_ALLOC: memory for many small objects of one lifetime, dropped all together.
#pragma once

#include <cstdint>

#include "ktl_mem/export.h"

inline constexpr std::uint32_t mem_utils_chunk_size = 32768;  // bytes; also the largest request of a chunk

// Hands out zeroed memory from chunks. There is no single free: chunk_free_memory gives everything back. What
// was handed out outlives the object when that isn't called first.
//
// When the key "mem_utils_no_chunk_allocation" is on at the process's first object, every request is a plain
// allocation instead, for tools that look at single blocks; each is then released by
// chunk_delete_when_chunking_disabled.
//
// An object serves one thread at a time. Not for use in an allocator hook: it allocates.
class KTL_MEM_API MEM_UTILS_CHUNK_ALLOC {
  public:
    MEM_UTILS_CHUNK_ALLOC();
    ~MEM_UTILS_CHUNK_ALLOC();
    MEM_UTILS_CHUNK_ALLOC(const MEM_UTILS_CHUNK_ALLOC&) = delete;
    MEM_UTILS_CHUNK_ALLOC& operator=(const MEM_UTILS_CHUNK_ALLOC&) = delete;

    // `size` zeroed bytes. The address is a multiple of `alignment`, which need not be a power of two but
    // must not be 0; the first block of a chunk has malloc's alignment, 16, whatever was asked. Blocks too
    // large for the chunk come from malloc. Never null for a size above 0: when memory runs out,
    // mem_out_of_memory ends the process. Without chunks, the alignment is malloc's.
    void* chunk_malloc(std::uint64_t size, std::uint64_t alignment) {
        if (chunking_enabled) [[likely]] {
            const std::uint64_t pad = pad_to(next_free, alignment);
            // As "pad + size <= remaining", without the overflow of a huge size.
            if (size <= remaining && pad <= remaining - size) [[likely]] {
                // Both fields take part in different sums: compilers pair equal ones, and the next request
                // then waits for the paired store.
                const std::uint64_t block = next_free + pad;
                next_free = block + size;
                remaining -= pad + size;
                return reinterpret_cast<void*>(block);
            }
        }
        return allocate_slow(size, alignment);
    }

    // Frees all that came from chunks, and the large blocks. Plain allocations are not touched.
    void chunk_free_memory();

    // Frees a plain allocation (null is allowed); does nothing while there are chunks.
    void chunk_delete_when_chunking_disabled(void* block);

    bool chunk_allocation_is_enabled() const { return chunking_enabled; }

    // A request that doesn't fit gives the current chunk up when it has less than this many bytes left (100
    // at first), and else leaves it for smaller ones.
    void set_fragment_threshold(std::uint32_t bytes) { fragment_threshold = bytes; }

  private:
    struct NODE {
        NODE* next;
        void* block;
    };

    // What is missing to the next multiple. The first line only saves the division.
    static std::uint64_t pad_to(std::uint64_t address, std::uint64_t alignment) {
        if ((alignment & (alignment - 1)) == 0) [[likely]]
            return (0 - address) & (alignment - 1);
        const std::uint64_t remainder = address % alignment;
        return remainder == 0 ? 0 : alignment - remainder;
    }

    void* allocate_slow(std::uint64_t size, std::uint64_t alignment);
    void* allocate_private_block(std::uint64_t size, std::uint64_t alignment);
    void* allocate_in_new_chunk(std::uint64_t size);
    void* allocate_listed(std::uint64_t size);
    void warn_of_oversize();
    void delete_nodes();

    NODE* allocations = nullptr;             // every block from malloc, the latest first
    std::uint64_t remaining = 0;             // bytes of the current chunk
    std::uint64_t next_free = 0;             // address of the current chunk's first free byte
    std::uint32_t fragment_threshold = 100;  // bytes
    std::uint32_t oversize_count = 0;        // requests above a chunk's size since the last chunk_free_memory
    bool chunking_enabled;
};
