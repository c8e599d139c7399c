// calloc and realloc in front of the allocator's, for a program that runs under fill patterns. The patterns
// are laid over a block when the allocator calls its hooks: that destroys what calloc has cleared, and the
// content of a block that realloc leaves where it is. Here calloc clears after the hooks, and realloc always
// moves.
//
// The tracker passes over the frames of this object, by its name as by that of every object of the project.
#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#define IN_FRONT extern "C" __attribute__((visibility("default")))

// Built without knowledge of the allocation functions: else the compiler makes a calloc of the two calls,
// this one.
IN_FRONT void* calloc(std::size_t count, std::size_t size) noexcept {
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = std::malloc(bytes);
    if (block != nullptr) std::memset(block, 0, bytes);
    return block;
}

IN_FRONT void* realloc(void* old, std::size_t size) noexcept {
    if (old == nullptr) return std::malloc(size);
    if (size == 0) {
        std::free(old);
        return nullptr;
    }
    void* const block = std::malloc(size);
    if (block == nullptr) return nullptr;
    std::memcpy(block, old, std::min(size, malloc_usable_size(old)));
    std::free(old);
    return block;
}
