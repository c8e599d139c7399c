// The report of a timeline: a row for each sample, in two forms. The plain one names the 18 series with the
// highest values and sums the others; the detailed one names all. A function of values: who owns them holds
// their locks meanwhile.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>
#include <vector>

#include "mem/bins/profile_bins.h"
#include "mem/timeline/tag_timeline.h"
#include "mem/timeline/timeline.h"

struct MEM_TIMELINE_COLUMN {
    std::string_view name;
    const MEM_TIMELINE* series;  // ends early: zeros from there on; runs on past num_samples: not read
};

class MEM_ROW_LABELS {
  public:
    virtual ~MEM_ROW_LABELS() = default;
    // The label of the next row, valid until the next call.
    virtual std::string_view next() = 0;
    // After the row and its line end are written.
    virtual void row_ended() {}
};

// False, and nothing written, when a stream has failed already.
bool dump_timeline(std::ostream& plain, std::ostream& detailed,
                   const std::vector<MEM_TIMELINE_COLUMN>& columns, std::uint64_t num_samples,
                   MEM_ROW_LABELS& labels);

// The tag report of these series: each row is labelled with the bin of its sample.
bool mem_write_tag_timeline(std::ostream& plain, std::ostream& detailed, const MEM_TAG_SERIES& series,
                            const MEM_PROFILE_BINS& names);

enum class MEM_MODULE_VALUE { CURRENT_BYTES, CUMULATIVE_BLOCKS };

// The reports of the tracker's timelines, under their locks. The calling thread's allocations must not be
// events: the hooks are off, or the thread is blocked.
bool mem_dump_module_timelines(std::ostream& plain, std::ostream& detailed, MEM_MODULE_VALUE value);
bool mem_dump_tag_timeline(std::ostream& plain, std::ostream& detailed);
