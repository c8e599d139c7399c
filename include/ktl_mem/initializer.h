// MEM_INITIALIZER: how a module takes part in the library's start and end.
#pragma once

#include <atomic>
#include <cstdint>

#include "ktl_mem/export.h"

// A module of the host holds one object with static lifetime. The library owns one itself, named "MEM", so
// the library is up before any code of the host runs. The last object to die ends tracking, writes the
// reports and frees the tables; after that the library answers calls and tracks nothing. An object that never
// dies, as one on the heap that nobody deletes, keeps that from happening: the process ends without reports
// unless the host calls mem_shutdown_tbb_tracking (ktl_mem/reports.h).
//
// Construction and destruction are safe from any thread and must not happen in an allocator hook.
class KTL_MEM_API MEM_INITIALIZER {
  public:
    // The text is not copied: the caller keeps it alive until the destructor has run. It may be null.
    explicit MEM_INITIALIZER(const char* module_name = nullptr);
    ~MEM_INITIALIZER();
    // Copies the name and nothing else.
    MEM_INITIALIZER& operator=(const MEM_INITIALIZER& other);
    MEM_INITIALIZER(const MEM_INITIALIZER&) = delete;

    // Objects alive in the process.
    static std::atomic<std::uint64_t> s_init_counter;

  private:
    const char* name;
};
