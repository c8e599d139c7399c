// The report of the call paths, from a region of any process. Includes nothing of the library but the layout.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "mem/paths/region.h"

// The figures of one node.
struct MEM_PATH_ROW {
    std::uint32_t node = 0;
    std::uint32_t site = 0;  // number of the call site, plus 1; 0 when it is not known
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;
    std::int64_t requested_bytes = 0;
    std::int64_t peak_bytes = 0;
    std::int64_t peak_blocks = 0;
    std::int64_t cumulative_bytes = 0;
    std::int64_t cumulative_blocks = 0;
    std::int64_t cumulative_requested_bytes = 0;
    std::int64_t temporary_blocks = 0;
};

// All figures that are not 0, shares put together, in the order of the nodes. Of one moment when nobody
// charges meanwhile.
struct MEM_PATH_SNAPSHOT {
    std::vector<MEM_PATH_ROW> rows;
    std::uint32_t nodes = 0;
    std::uint64_t shortened_events = 0;
    std::uint64_t peak_event = 0;
    std::uint64_t peak_ms = 0;
    MEM_PATH_ROW sums;
};
MEM_PATH_SNAPSHOT mem_copy_call_paths(const MEM_PATH_REGION& region);

// One function that an address stands for.
struct MEM_PATH_LEVEL {
    std::string module;
    std::string file;      // empty when unknown
    std::string function;  // the same
    std::uint32_t line = 0;
    bool is_filtered = false;  // the search for the responsible frame passes over it
};

// A return address in a load of a module, by its number; 0 for none.
struct MEM_PATH_FRAME {
    std::uint64_t pc;
    std::uint16_t load;

    bool operator==(const MEM_PATH_FRAME&) const = default;
};

// For each frame the function of its address and those that it was inlined into, outwards; at least one
// level.
using MEM_PATH_NAMER =
    std::function<std::vector<std::vector<MEM_PATH_LEVEL>>(const std::vector<MEM_PATH_FRAME>& frames)>;

void mem_write_call_paths(std::ostream& out, const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot,
                          const MEM_PATH_NAMER& name);
