// Threads that block their own tracking, and memory mappings that a host announces.
#include "mem/base/profiler_counters.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/base/tracking_word.h"
#include "mem/tracker/events.h"
#include "mem/tracker/resident_sampling.h"
#include "mem/tracker/start.h"

namespace {

bool notifications_are_tracked() {
    if (mem_tbb_tracker_has_ended()) return false;
    if (!mem_tbb_tracker_is_inited()) mem_tbb_tracker_start(mem_get_tracking_granularity_from_env());
    return mem_tbb_tracker_is_inited() && mem_tracking_word != 0;
}

bool thread_may_track() {
    return !mem_thread_state.in_tracker && !mem_thread_state.tracking_blocked;
}

// Tables keep the address 0 for "none"; a mapping there has a key that no memory of the process can have.
std::uint64_t key_of(const void* address) {
    constexpr std::uint64_t no_address = std::uint64_t{1} << 63;
    return address != nullptr ? reinterpret_cast<std::uint64_t>(address) : no_address;
}

// A function of its own between notification and event body: an event's stack begins at its caller's caller,
// as with a hook, which the allocator calls through a function of its own.
__attribute__((noinline)) void add_mapping(const void* address, std::uint64_t size) {
    if (!thread_may_track()) {
        mem_tbb_profiler_counters.count_alloc(size, size);
        return;
    }
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_announced_bytes.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed);
    mem_tbb_track_alloc(key_of(address), size, size, stack_walk_start(__builtin_frame_address(0)));
}

void remove_mapping(const void* address, std::uint64_t size) {
    if (!thread_may_track()) {
        mem_tbb_profiler_counters.count_dealloc(size);
        return;
    }
    const MEM_IN_TRACKER_SCOPE inside;
    mem_tbb_announced_bytes.fetch_sub(static_cast<std::int64_t>(size), std::memory_order_relaxed);
    mem_tbb_track_dealloc(key_of(address), size);
}

}  // namespace

int mem_block_thread_tracking() {
    const bool was_blocked = mem_thread_state.tracking_blocked;
    mem_thread_state.tracking_blocked = true;
    return was_blocked ? 1 : 0;
}

int mem_unblock_thread_tracking() {
    const bool was_blocked = mem_thread_state.tracking_blocked;
    mem_thread_state.tracking_blocked = false;
    return was_blocked ? 1 : 0;
}

void mem_notify_memory_mapping_added(const void* address, std::uint64_t size) {
    if (notifications_are_tracked()) add_mapping(address, size);
    asm volatile("");  // or the call above becomes a jump, and the frame that the ignore depth counts is gone
}

void mem_notify_memory_mapping_removed(const void* address, std::uint64_t size) {
    if (notifications_are_tracked()) remove_mapping(address, size);
}
