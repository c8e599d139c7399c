// MEM_PATH_LOADS: which loading of a module a program counter belongs to. After a module was unloaded another
// one may lie at its addresses, whose frames are others.
#pragma once

#include <cstdint>
#include <vector>

#include "mem/base/spin_lock.h"
#include "mem/paths/region_memory.h"
#include "platform/symbols/loaded_image.h"

class MEM_PATH_LOADS {
  public:
    explicit MEM_PATH_LOADS(MEM_PATH_MEMORY& memory_of_region) : memory(memory_of_region) {}

    // The number of the load that holds pc now, 0 for none. What was found once is asked again when the
    // generation of the unwind rules has changed, since modules may have come and gone. Any thread, with no
    // lock held; allocates when it sees a module for the first time.
    std::uint16_t find(std::uint64_t pc, std::uint16_t generation);

    // What lay there, of a number above 0 that find has given.
    symbols::LOADED_IMAGE image(std::uint16_t number);

  private:
    struct KNOWN {
        symbols::LOADED_IMAGE image;
        std::uint16_t generation;  // in which it was found loaded the last time
    };
    std::uint16_t find_checked(std::uint64_t pc, std::uint16_t generation);
    std::uint16_t enter(const symbols::LOADED_IMAGE& image, std::uint16_t generation);

    MEM_PATH_MEMORY& memory;
    MEM_SPIN_LOCK lock;
    std::vector<KNOWN> known MEM_GUARDED_BY(lock);  // by their numbers, less 1
};
