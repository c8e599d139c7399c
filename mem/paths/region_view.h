// MEM_PATH_VIEW: the region of the call paths as another process reads it, while the tracked one runs and
// after it has died. Includes nothing of the library but the layout.
#pragma once

#include <cstddef>

#include "mem/paths/region.h"

class MEM_PATH_VIEW {
  public:
    MEM_PATH_VIEW() = default;
    ~MEM_PATH_VIEW();
    MEM_PATH_VIEW(const MEM_PATH_VIEW&) = delete;
    MEM_PATH_VIEW& operator=(const MEM_PATH_VIEW&) = delete;

    // Maps what the region holds by now, to read it; also what has come since the last call. False when it
    // can't be mapped, or is no region of this version; then the view is as it was. The descriptor stays the
    // caller's.
    bool map(int descriptor);
    const MEM_PATH_REGION& region() const { return mapped_region; }

  private:
    void unmap();

    MEM_PATH_REGION mapped_region;
    const std::byte* memory = nullptr;
    std::size_t bytes = 0;
};
