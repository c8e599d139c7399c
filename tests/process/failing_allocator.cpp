// An allocator in front of the real one that fails once, at a chosen allocation, as that one does
// when its system has no memory: it runs the new handler and tries again.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/process/kept.h"

#define SHOWN __attribute__((visibility("default")))

extern "C" {

// The allocation at which this comes to 0 fails.
SHOWN std::atomic<long> allocations_left{0};

SHOWN void* malloc(std::size_t size) {
    static auto* const real = reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "malloc"));
    if (--allocations_left != 0) return real(size);
    try {
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) return nullptr;
        handler();
        return real(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Hidden, or the compiler makes a call of calloc of it.
SHOWN void* calloc(std::size_t count, std::size_t size) {
    void* const block = kept(malloc(count * size));
    return block != nullptr ? std::memset(block, 0, count * size) : nullptr;
}
}

SHOWN void* operator new(std::size_t size) {
    if (void* const block = malloc(size)) return block;
    throw std::bad_alloc();
}

SHOWN void* operator new[](std::size_t size) {
    return operator new(size);
}
