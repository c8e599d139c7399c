// An allocator in front of the real one that fails once, at a chosen allocation, as that one does
// when its system has no memory: it runs the new handler until there is none.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <new>

#define SHOWN __attribute__((visibility("default")))

namespace {

std::atomic<long> seen{0}, failing{0};

template <class... ARGUMENTS>
void* allocate(void* (*real)(ARGUMENTS...), ARGUMENTS... arguments) {
    if (++seen != failing) return real(arguments...);
    if (const std::new_handler handler = std::get_new_handler()) handler();
    return nullptr;
}

template <class... ARGUMENTS>
auto next(const char* name) {
    return reinterpret_cast<void* (*)(ARGUMENTS...)>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// Counts from here on; 0 fails none.
SHOWN void fail_allocation(long number) {
    seen = 0;
    failing = number;
}

SHOWN long allocations_seen() {
    return seen;
}

SHOWN void* malloc(std::size_t size) {
    static auto* const real = next<std::size_t>("malloc");
    return allocate(real, size);
}

SHOWN void* calloc(std::size_t count, std::size_t size) {
    static auto* const real = next<std::size_t, std::size_t>("calloc");
    return allocate(real, count, size);
}
}

SHOWN void* operator new(std::size_t size) {
    static auto* const real = next<std::size_t>("_Znwm");
    if (void* const block = allocate(real, size)) return block;
    throw std::bad_alloc();
}

SHOWN void* operator new[](std::size_t size) {
    return operator new(size);
}
