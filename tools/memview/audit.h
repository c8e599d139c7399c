#pragma once

// Holds the reports of one run against each other.

#include <string>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

struct Audit {
    std::uint64_t compared = 0;              // figures
    std::vector<std::string> disagreements;  // one for each pair of figures that should be equal and are not
    std::vector<std::string> notes;          // what was not compared, and why
};

// Reads the timelines anew, row by row, where two of them should have the same sums.
Audit audit(const Run& run, const Names& names);

}  // namespace memview
