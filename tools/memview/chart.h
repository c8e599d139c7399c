#pragma once

// A timeline made small enough to be drawn: whole rows of samples, those that hold an extreme of their
// stretch.

#include <string>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

struct ChartRow {
    std::uint64_t index = 0;  // of the sample, from 0
    std::uint32_t label = 0;  // into Chart::labels
    std::vector<std::int64_t> values;
};

struct Chart {
    std::string key;  // "modules", "tags", "process", "resident"
    bool stacked = true;
    bool rest = false;  // the first series is the sum of all that have no place of their own
    std::uint64_t samples = 0;
    std::vector<std::string> series;  // the one with the highest value last; what was summed up first
    std::vector<std::string> labels;
    std::vector<ChartRow> rows;
    std::vector<std::int64_t> times;  // of the rows, in milliseconds since the start; empty when not known
};

// Keeps rows while they arrive. Of each stretch of samples it keeps the rows with the lowest and the highest
// sum and with the highest value of any series, so that a stack drawn from them is one that the process
// really had. At most `most_stretches` stretches are kept; when they are full, neighbours are joined.
class RowThinner {
  public:
    explicit RowThinner(std::size_t most_stretches) : most_(most_stretches) {}

    void add(ChartRow row);
    std::vector<ChartRow> take();

  private:
    using Stretch = std::vector<ChartRow>;
    static void thin(Stretch& stretch);
    void join();

    std::size_t most_;
    std::uint64_t length_ = 1;
    std::uint64_t in_last_ = 0;
    std::vector<Stretch> stretches_;
};

// The charts that the run's reports allow, read anew from their files.
std::vector<Chart> read_charts(const Run& run, std::size_t most_stretches);

}  // namespace memview
