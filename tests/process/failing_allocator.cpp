// An allocator in front of the one of the process that fails once, at a chosen allocation, as that one does
// when its system has no memory: it runs the new handler until there is none.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> seen{0};
std::atomic<long> failing{0};

bool fails_now() {
    return ++seen == failing.load();
}

void* run_out() {
    if (const std::new_handler handler = std::get_new_handler()) handler();
    return nullptr;
}

template <class FUNCTION>
FUNCTION* next(const char* name) {
    return reinterpret_cast<FUNCTION*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define SHOWN extern "C" __attribute__((visibility("default")))

// Counts from here on; 0 fails none.
SHOWN void fail_allocation(long number) {
    seen = 0;
    failing = number;
}

SHOWN long allocations_seen() {
    return seen;
}

SHOWN void* malloc(std::size_t size) {
    static auto* const real = next<void*(std::size_t)>("malloc");
    return fails_now() ? run_out() : real(size);
}

SHOWN void* calloc(std::size_t count, std::size_t size) {
    static auto* const real = next<void*(std::size_t, std::size_t)>("calloc");
    return fails_now() ? run_out() : real(count, size);
}

__attribute__((visibility("default"))) void* operator new(std::size_t size) {
    static auto* const real = next<void*(std::size_t)>("_Znwm");
    void* const block = fails_now() ? run_out() : real(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

__attribute__((visibility("default"))) void* operator new[](std::size_t size) {
    return operator new(size);
}
