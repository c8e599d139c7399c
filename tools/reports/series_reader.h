#pragma once

// Reads the reports that are series over the samples: the timelines and the auxiliary timeline.

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

struct SeriesVisitor {
    // Once, before the rows.
    std::function<void(const std::vector<std::string>& names)> header;
    // Each sample in its order; both arguments live for the call. The auxiliary timeline has empty labels,
    // and its unsigned values are given by their bits, so that a figure that the system refused is -1.
    std::function<void(std::string_view label, std::span<const std::int64_t> values)> row;
};

// Throws ReportError when the head is wrong; bad rows and a missing end go to `problems`.
void scan_series(const std::string& path, std::string_view kind, Problems& problems,
                 const SeriesVisitor& visitor);

// The highest, the last and the course of each series, whatever the number of samples.
Timeline read_timeline(const std::string& path, std::string_view kind, Problems& problems);

}  // namespace memview
