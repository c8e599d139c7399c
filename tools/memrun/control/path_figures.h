// Figures from the shared region of a process, while it runs and after it has died.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mem/paths/region_view.h"
#include "tools/memrun/control/followed.h"

namespace memrun::control {

// A call site: the frame of a path that is held responsible.
struct HeldSite {
    std::int64_t bytes = 0;  // charged there and not yet freed
    std::int64_t blocks = 0;
    std::string place;  // FILE:LINE, or the module when the line is not known
    std::string function;
};

struct Held {
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;
    std::int64_t peak_bytes = 0;
    std::int64_t cumulative_bytes = 0;
    std::int64_t cumulative_blocks = 0;
    std::vector<HeldSite> sites;  // the highest, by bytes
};

// Of one process. False when it has no region, or one that makes no sense.
bool read_held(const Process& process, std::size_t most_sites, Held& held);

// Writes mem_tbb_call_paths.WORD.log into the folder, as of now. False when there is no region, or the file
// cannot be written to its end.
bool write_call_paths(const Process& process, const std::string& folder);

}  // namespace memrun::control
