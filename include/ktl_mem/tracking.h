// What the tracker records, and the switches that change it while the process runs.
//
// The starting word comes from the environment and the configuration when the library loads. All calls
// here are safe from any thread. None may be called in an allocator hook unless it says so.
#pragma once

#include <cstdint>

#include "ktl_mem/export.h"

// A set of bits; combine with |.
enum MEM_TRACKING_GRANULARITY : std::uint32_t {
    MEM_TRACKING_NONE = 0,
    MEM_TRACKING_ALLOC_DEALLOC = 1,        // process-wide counters
    MEM_TRACKING_PROFILE_BIN_TAGS = 2,     // bins and tags
    MEM_TRACKING_PER_LIBRARY = 4,          // modules and their timelines
    MEM_TRACKING_PER_FILELINE = 8,         // call sites
    MEM_TRACKING_LEAKS = 16,               // call sites, and the full leak report
    MEM_TRACKING_LEAKS_FAST = 32,          // process-wide counters, and the short leak summary
    MEM_TRACKING_AUXILIARY_TIMELINE = 64,  // what the system says of the process, over time
    MEM_TRACKING_CALL_PATHS = 128,         // a path of calls for each block, and the exact peak
    MEM_TRACKING_RESIDENT = 256,           // the resident memory taken apart, over time (resident.h)
    MEM_TRACKING_ALL = 95                  // all but the short leak summary, call paths and resident memory
};

constexpr MEM_TRACKING_GRANULARITY operator|(MEM_TRACKING_GRANULARITY a, MEM_TRACKING_GRANULARITY b) {
    return static_cast<MEM_TRACKING_GRANULARITY>(static_cast<std::uint32_t>(a) |
                                                 static_cast<std::uint32_t>(b));
}

// Computes the starting word from environment and configuration, and notes which report files are due.
// Changes no tracking. Reads the process's own path; an unreadable path is an internal error.
KTL_MEM_API MEM_TRACKING_GRANULARITY mem_get_tracking_granularity_from_env();

// Adds bits; the first bit attaches the allocator hooks. A bit added after the library's start records
// data that no report file of the shut-down shows, but for the leak reports.
KTL_MEM_API void mem_enable_tracking(MEM_TRACKING_GRANULARITY bits);

// Removes bits; the last bit detaches the allocator hooks.
KTL_MEM_API void mem_disable_tracking(MEM_TRACKING_GRANULARITY bits);

// True when all the given bits are set; true for no bits. Safe in a hook.
KTL_MEM_API bool mem_tracking_is_enabled(MEM_TRACKING_GRANULARITY bits);

// MEM_TRACKING_ALLOC_DEALLOC by itself. The getter is safe in a hook.
KTL_MEM_API bool mem_get_tbb_track_alloc_dealloc();
KTL_MEM_API void mem_set_tbb_track_alloc_dealloc(bool enable);

// Whether mem_open_profile_bin and mem_close_profile_bin measure. The setter starts the tracker with
// MEM_TRACKING_ALLOC_DEALLOC when it has not started. The getter is safe in a hook.
KTL_MEM_API bool mem_get_tbb_memory_tracking_enabled();
KTL_MEM_API void mem_set_tbb_memory_tracking_enabled(bool enable);

// The middle word of every report file's name, "vii" until set. The result is valid until the next set;
// it is the empty string before the tracker's start. A null argument is an internal error, and so is a
// set before the start. Getter and setter must not race.
KTL_MEM_API const char* mem_get_tbb_exe_string();
KTL_MEM_API void mem_set_tbb_exe_string(const char* exe_string);

extern "C" {
// Blocks and unblocks the attribution of the calling thread's allocations. Each returns whether it was
// blocked before, 0 or 1; a caller that nests keeps that result. Safe in a hook.
KTL_MEM_API int mem_block_thread_tracking();
KTL_MEM_API int mem_unblock_thread_tracking();

// Announce memory that no allocator gave, in bytes. Added memory counts as an allocation at `address`,
// removed memory as its free. Start the tracker when it has not started. `address` may be null.
KTL_MEM_API void mem_notify_memory_mapping_added(const void* address, std::uint64_t size);
KTL_MEM_API void mem_notify_memory_mapping_removed(const void* address, std::uint64_t size);
}

// Switches MEM_TRACKING_ALLOC_DEALLOC off for the whole process until the scope ends.
class KTL_MEM_API MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT {
  public:
    MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT();
    ~MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT();
    MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT(const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT&) =
        delete;
    MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT& operator=(
        const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT&) = delete;

  private:
    bool was_set;
};

// Sends the tracker's debug line straight to standard output until the scope ends.
class KTL_MEM_API MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT {
  public:
    MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT();
    ~MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT();
    MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT(const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT&) = delete;
    MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT& operator=(const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT&) = delete;

  private:
    bool set_here;
};
