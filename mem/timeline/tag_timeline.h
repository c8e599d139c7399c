// MEM_TAG_TIMELINE: which tag held how much over the samples, and which bin was current at each.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "mem/bins/profile_bin_table.h"
#include "mem/timeline/timeline.h"

using PB_ID = std::uint16_t;

// What the samples have left, as values.
struct MEM_TAG_SERIES {
    std::vector<MEM_TIMELINE> tag_series;  // by tag id
    std::uint64_t num_samples = 0;         // since the last reset
    MEM_RUN_SERIES<PB_ID> bin_series;      // of all samples, a reset leaves it alone
};

// Samples and resets are alone in the tracker's gate, so that events and each other are kept out. The mutex
// is taken inside of it, for the readers.
class MEM_TAG_TIMELINE {
  public:
    explicit MEM_TAG_TIMELINE(MEM_PROFILE_BIN_TABLE& tag_table) : tags(tag_table) {}

    // As a cat. One sample of all tags at one moment, and of the current bin. Runs on the event path, or on a
    // thread whose allocations are no events. A current bin whose id needs more than 16 bits is an internal
    // error.
    void sample();

    // As a cat. Empties the tag table and forgets the series of the tags.
    void reset();

    // visit(series) while nobody samples. The visitor's allocations must not be events.
    template <class VISIT>
    auto read(VISIT&& visit) {
        const std::scoped_lock guard(mutex);
        return visit(static_cast<const MEM_TAG_SERIES&>(series));
    }

  private:
    MEM_PROFILE_BIN_TABLE& tags;
    std::mutex mutex;
    MEM_TAG_SERIES series;
};

extern MEM_TAG_TIMELINE* mem_tbb_tag_timeline;
