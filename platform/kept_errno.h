// errno for code that runs where nobody expects it to change: in hooks and signal handlers.
#pragma once

#include <cerrno>

// Puts errno back, at its end, as it was found.
class KEPT_ERRNO {
  public:
    KEPT_ERRNO() = default;
    ~KEPT_ERRNO() { errno = found; }
    KEPT_ERRNO(const KEPT_ERRNO&) = delete;
    KEPT_ERRNO& operator=(const KEPT_ERRNO&) = delete;

  private:
    const int found = errno;
};
