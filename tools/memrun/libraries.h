// The three objects that are preloaded into the program.
#pragma once

#include <string>

namespace memrun {

struct Libraries {
    std::string allocator;  // libtcmalloc_minimal
    std::string tracker;    // libktl_mem
    std::string agent;      // libktl_memrun_agent
};

// Finds them: tracker and agent beside this executable's folder (../lib), the allocator where the loader
// would. Throws Failure with the remedy when one is missing.
Libraries find_libraries();

}  // namespace memrun
