// The report of the call paths, from a region of any process. Includes nothing of the library but the layout.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>
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
    std::string_view module;
    std::string_view file;      // empty when unknown
    std::string_view function;  // the same
    std::uint32_t line = 0;
    bool is_filtered = false;  // the search for the responsible frame passes over it
};

// A return address in a load of a module, by its number; 0 for none.
struct MEM_PATH_FRAME {
    std::uint64_t pc;
    std::uint16_t load;

    bool operator==(const MEM_PATH_FRAME&) const = default;
};

// Takes what is known of one level of the frame with that number. The texts are gone behind the call.
using MEM_PATH_LEVEL_TAKER =
    std::function<void(std::size_t frame, std::size_t level, const MEM_PATH_LEVEL& text)>;

// Hands over, for one frame after the other, the function of its address and those that it was inlined into,
// outwards; at least one level of each.
using MEM_PATH_NAMER =
    std::function<void(const std::vector<MEM_PATH_FRAME>& frames, const MEM_PATH_LEVEL_TAKER& take)>;

void mem_write_call_paths(std::ostream& out, const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot,
                          const MEM_PATH_NAMER& name);
