// Internal errors, and the walker of stacks. Nothing here allocates, takes a lock or calls the loader
// unless it says so.
#pragma once

#include <cstdint>

// Prints condition, subsystem, source and line to standard error and aborts. Texts must not be null.
[[noreturn]] void err_report_internal_error(const char* condition, const char* subsystem, const char* source,
                                            int line);

class ERR_UNWINDER {
  public:
    virtual ~ERR_UNWINDER() = default;
    virtual const char* get_name() const = 0;

    // Stores up to max_frames return addresses of the calling thread, innermost first, after leaving out
    // the skip innermost frames; the frame of capture_stack itself is the first of them. The last argument
    // is always 0. Returns how many were stored. Safe in an allocator hook and in a signal handler: it
    // allocates nothing, takes no lock and keeps errno.
    virtual std::int32_t capture_stack(std::uint64_t* pcs, std::int32_t max_frames, std::int32_t skip,
                                       std::int32_t zero) = 0;

    // The walker of this process; lives as long as the process. Never null here.
    static ERR_UNWINDER* get_default_unwinder();
};
