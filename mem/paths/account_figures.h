// Moves the figures of one account, and copies them late: an account that is about to change first keeps its
// figures as those of the exact peak, if the peak has risen since it changed last.
#pragma once

#include <mutex>

#include "mem/base/spin_lock.h"
#include "mem/paths/region.h"

static_assert(sizeof(MEM_SPIN_LOCK) == 1);

// Waits for an account until it belongs to many threads.
inline constexpr std::uint8_t mem_path_many_waits = 16;

struct MEM_PATH_BLOCK {
    std::uint64_t address;
    std::uint64_t requested;  // bytes, as far as that is known
    std::uint64_t allocated;
};

class MEM_PATH_FIGURES {
  public:
    // peak: the highest total so far.
    MEM_PATH_FIGURES(const MEM_PATH_REGION& region, std::uint32_t number, std::int64_t peak)
        : counts(region.counts(number)),
          late(region.late_counts(number)),
          lock(reinterpret_cast<MEM_SPIN_LOCK&>(counts.lock)) {
        if (lock.acquire() && counts.waits < mem_path_many_waits && ++counts.waits == mem_path_many_waits)
            counts.is_shared.set(true);
        if (counts.peak_mark.get() != peak) keep_peak(peak);
    }
    ~MEM_PATH_FIGURES() { lock.unlock(); }
    MEM_PATH_FIGURES(const MEM_PATH_FIGURES&) = delete;
    MEM_PATH_FIGURES& operator=(const MEM_PATH_FIGURES&) = delete;

    void add(const MEM_PATH_BLOCK& block) {
        counts.bytes.add(static_cast<std::int64_t>(block.allocated));
        counts.blocks.add(1);
        counts.requested_bytes.add(static_cast<std::int64_t>(block.requested));
        counts.cumulative_bytes.add(static_cast<std::int64_t>(block.allocated));
        counts.cumulative_blocks.add(1);
        counts.cumulative_requested_bytes.add(static_cast<std::int64_t>(block.requested));
    }
    // Of a block whose free will not know what was requested, and that was added without.
    void add_requested_ever(std::uint64_t requested) {
        counts.cumulative_requested_bytes.add(static_cast<std::int64_t>(requested));
    }
    void remove(const MEM_PATH_BLOCK& block, bool is_temporary) {
        counts.bytes.add(-static_cast<std::int64_t>(block.allocated));
        counts.blocks.add(-1);
        counts.requested_bytes.add(-static_cast<std::int64_t>(block.requested));
        if (is_temporary) late.temporary_blocks.add(1);
    }

  private:
    void keep_peak(std::int64_t peak) {
        late.peak_bytes.set(counts.bytes.get());
        late.peak_blocks.set(counts.blocks.get());
        counts.peak_mark.set(peak);
    }

    MEM_PATH_COUNTS& counts;
    MEM_PATH_LATE_COUNTS& late;
    MEM_SPIN_LOCK& lock;
};
