// MEM_MODULE_TIMELINES: which module held how much, over the samples.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "mem/timeline/timeline.h"

// Orders names without regard to the case of ASCII letters; a locale that the host sets meanwhile must not
// change the order of a map.
struct MEM_LESS_WITHOUT_CASE {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const;
};

// Names that differ only in case share a module's series, which then runs ahead of num_samples.
struct MEM_MODULE_SERIES {
    MEM_TIMELINE bytes;   // current_bytes
    MEM_TIMELINE blocks;  // cumulative_blocks
};

class MEM_MODULE_TIMELINES {
  public:
    using SERIES_MAP = std::map<std::string, MEM_MODULE_SERIES, MEM_LESS_WITHOUT_CASE>;

    // One sample of every module. TABLE is the module table, whose lock is taken inside the mutex. Runs on
    // the event path, or on a thread whose allocations are no events.
    template <class TABLE>
    void sample(TABLE& modules) {
        const std::scoped_lock guard(mutex);
        modules.for_each_at_rest([this](const auto& figures) {
            record(figures.name, figures.current_bytes, figures.cumulative_blocks);
        });
        ++num_samples;
    }

    // visit(series, num_samples) while nobody samples. The visitor's allocations must not be events: their
    // sample point would take the mutex again.
    template <class VISIT>
    auto read(VISIT&& visit) {
        const std::scoped_lock guard(mutex);
        return visit(static_cast<const SERIES_MAP&>(series), num_samples);
    }

  private:
    void record(std::string_view name, std::int64_t current_bytes, std::int64_t cumulative_blocks);

    std::mutex mutex;
    SERIES_MAP series;
    std::uint64_t num_samples = 0;
};

extern MEM_MODULE_TIMELINES* mem_tbb_module_timelines;
