// The objects that are preloaded into the program.
#pragma once

#include <string>

namespace memrun {

struct Libraries {
    std::string allocator;    // libtcmalloc_minimal
    std::string tracker;      // libktl_mem
    std::string agent;        // libktl_memrun_agent
    std::string early_start;  // libktl_memrun_early_start
    std::string fill_guard;   // libktl_memrun_fill_guard; preloaded only with a fill pattern
};

// Finds them: those of the project beside this executable's folder (../lib), the allocator where the loader
// would. Throws Failure with the remedy when one is missing.
Libraries find_libraries();

}  // namespace memrun
