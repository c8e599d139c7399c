#include "tools/memrun/agent/guarded_code.h"

#include <link.h>
#include <pthread.h>

#include <cstdint>
#include <cstring>

#include "platform/stack_walk.h"

namespace memrun::agent {

namespace {

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

Range allocator;
Range tracker;

Range code_of(const dl_phdr_info& object) {
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object.dlpi_phdr[i];
        const std::uintptr_t begin = object.dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0)
            return {begin, begin + segment.p_memsz};
    }
    return {};
}

int note_object(dl_phdr_info* object, std::size_t, void*) {
    if (std::strstr(object->dlpi_name, "/libtcmalloc_minimal.so") != nullptr) allocator = code_of(*object);
    if (std::strstr(object->dlpi_name, "/libktl_mem.so") != nullptr) tracker = code_of(*object);
    return 0;
}

// From the first fork handler to the last one: the allocator's hold its locks, and nothing on the stack says
// so.
constinit thread_local bool is_forking = false;

bool is_guarded(std::uintptr_t address) {
    return allocator.holds(address) || tracker.holds(address);
}

// Whether `is_wanted` holds for one of the stack's addresses, innermost first. Every step is worked out from
// the call frame information: a step that was remembered may be one of a module that is gone.
template <class Predicate>
bool any_frame(const STACK_WALK_START& start, Predicate is_wanted) {
    STACK_WALK walk(start, true);
    for (std::uint64_t address = 0; walk.next(&address, 1) == 1;)
        if (is_wanted(address)) return true;
    return false;
}

}  // namespace

void find_guarded_code() {
    dl_iterate_phdr(note_object, nullptr);
    // Registered behind the allocator's handlers, these are the outermost.
    pthread_atfork([] { is_forking = true; }, [] { is_forking = false; }, [] { is_forking = false; });
}

bool is_in_guarded_code() {
    return is_forking || any_frame(stack_walk_start(__builtin_frame_address(0)), is_guarded);
}

bool is_hooked_call_guarded() {
    // The stand-in for the system's call, and what calls the hooks for it.
    constexpr int frames_of_a_call = 2;
    int leading = 0;
    bool is_allocator_left = false;
    return any_frame(stack_walk_start(__builtin_frame_address(0)), [&](std::uintptr_t address) {
        const bool is_in_allocator = allocator.holds(address);
        is_allocator_left |= leading > 0 && !is_in_allocator;
        if (is_in_allocator && !is_allocator_left) ++leading;
        return leading > frames_of_a_call || tracker.holds(address);
    });
}

bool is_in_guarded_code_beyond_hook() {
    if (is_forking) return true;
    bool is_allocator_reached = false;
    bool is_allocator_left = false;
    return any_frame(stack_walk_start(__builtin_frame_address(0)), [&](std::uintptr_t address) {
        const bool is_in_allocator = allocator.holds(address);
        is_allocator_reached |= is_in_allocator;
        is_allocator_left |= is_allocator_reached && !is_in_allocator;
        return is_allocator_left && is_guarded(address);
    });
}

}  // namespace memrun::agent
