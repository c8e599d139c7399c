// MEM_TIMELINE: one value over the samples of a timeline. A pure value; its owner's mutex guards it.
#pragma once

#include <algorithm>
#include <cstdint>

#include "mem/bins/run_series.h"

using MEM_TIMELINE_RUN = MEM_RUN<std::int64_t>;

struct MEM_TIMELINE : MEM_RUN_SERIES<std::int64_t> {
    // Brings a series that began late, or missed samples, to n samples: with zeros.
    void fill_to(std::uint64_t n) {
        if (total < n) append(0, n - total);
    }

    // The highest value of all samples; 0 of none.
    std::int64_t highest() const {
        if (runs.empty()) return 0;
        return std::ranges::max_element(runs, {}, &MEM_TIMELINE_RUN::value)->value;
    }
};
