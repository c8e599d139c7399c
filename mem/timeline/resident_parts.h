// How the resident memory of the process is taken apart. The arithmetic is apart from the reading, so that it
// can be held against figures worked out by hand.
#pragma once

#include <cstdint>

#include "ktl_mem/resident.h"
#include "mem/base/allocator_figures.h"
#include "platform/process_mappings.h"

// What the tracker knows of blocks in use, in bytes.
struct MEM_TRACKED_BLOCKS {
    std::int64_t heap = 0;      // blocks of the program that are tracked
    std::int64_t rounding = 0;  // of these: what the allocator gave beyond what was asked for
    std::int64_t own = 0;       // the tracker's own blocks on the same heap
    std::int64_t mappings = 0;  // resident, of the tracker's own memory that the kernel has no name for
};

// Resident bytes of the mappings by what they are for.
struct MEM_RESIDENT_MAPPINGS {
    std::int64_t allocator = 0;
    std::int64_t stacks = 0;
    std::int64_t code = 0;
    std::int64_t module_data = 0;
    std::int64_t files = 0;
    std::int64_t shared_memory = 0;
    std::int64_t tracker = 0;
    std::int64_t anonymous = 0;
};

MEM_RESIDENT_PARTS mem_make_resident_parts(std::int64_t resident, const MEM_TRACKED_BLOCKS& tracked,
                                           const MEM_ALLOCATOR_FIGURES& allocator,
                                           const MEM_RESIDENT_MAPPINGS& mappings);

// Sorts the mappings of the process, lowest first.
class MEM_MAPPING_SORTER final : public MAPPING_VISITOR {
  public:
    explicit MEM_MAPPING_SORTER(MAPPING_BUFFERS& work) : buffers(work) {}
    void visit(const PROCESS_MAPPING& mapping) override;
    const MEM_RESIDENT_MAPPINGS& sorted() const { return sums; }

  private:
    std::int64_t& place_of(const PROCESS_MAPPING& mapping);
    std::int64_t& place_of_private_memory(const PROCESS_MAPPING& mapping);

    MAPPING_BUFFERS& buffers;
    MEM_RESIDENT_MAPPINGS sums;
    std::uint64_t end_of_guard = 0;  // where memory without access ended
};
