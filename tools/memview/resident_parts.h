#pragma once

// The parts of the resident memory: their names, and what a person can do about each.

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

// A part of one point, as a step of a waterfall.
struct ResidentStep {
    std::string title;
    std::int64_t bytes = 0;
    std::string advice;  // a sentence, for a part that is large; else empty
};

// From the largest to the smallest; what was never in memory comes off behind them, and what is unexplained
// stands last. Parts of nothing are left out. The sum is the resident size.
std::vector<ResidentStep> resident_steps(const ResidentPoint& point);

// The full points that a reader wants to see: the one with the most bytes of blocks, unless it is the last,
// and the last. Empty when the report has no full point.
struct ResidentMoment {
    const char* title;  // "near the peak", "at the end"
    const ResidentPoint* point;
};
std::vector<ResidentMoment> resident_moments(const Resident& resident);

}  // namespace memview
