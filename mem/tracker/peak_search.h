// When a peak is recorded: at totals that grow by doubling and by a fixed grid.
//
// A total that reaches twice the last recorded peak, or a higher multiple of the grid than it, is a new peak.
// Both rules are one comparison with a trigger that moves only when a peak is recorded. The highest value of
// mem_tbb_total_bytes is kept right below the trigger: that it has risen says that somebody has to look, so
// that events need not sum up the total. The words are plain: two threads can find the same peak, and record
// it one after the other.
#pragma once

#include <cstdint>

#include "mem/base/tracking_word.h"
#include "mem/tracker/tracker_state.h"

// The smallest total that is a new peak. recorded is not negative, grid is above 0.
std::int64_t mem_peak_trigger(std::int64_t next, std::int64_t recorded, std::int64_t grid);

// The total that the message names as the next peak: the lesser of next and total rounded up to the grid.
std::int64_t mem_next_peak_at_least(std::int64_t total, std::int64_t grid);

class MEM_PEAK_SEARCH {
  public:
    // Sets the grid, in bytes, before the first event.
    void start(std::int64_t grid_bytes);

    bool may_be_due() const { return mem_tbb_total_bytes.highest_bytes() >= trigger; }
    // The total is a peak that is not recorded yet; otherwise the watch begins anew.
    bool is_due(std::int64_t total);
    void record(std::int64_t total);
    // Searches anew, as after the start.
    void restart();

    std::int64_t recorded() const { return recorded_peak; }  // mem_tbb_recorded_peak
    std::int64_t next() const { return next_peak; }          // mem_tbb_next_peak

  private:
    static constexpr std::int64_t first_target = 1024;

    void watch();

    MEM_PLAIN_WORD<std::int64_t> trigger{first_target};
    MEM_PLAIN_WORD<std::int64_t> next_peak{first_target};
    MEM_PLAIN_WORD<std::int64_t> recorded_peak{0};
    MEM_PLAIN_WORD<std::int64_t> grid{MEM_TRACKING_SAMPLING{}.fileline_peak_snapshot_threshold};
};

extern MEM_PEAK_SEARCH mem_tbb_peak_search;
extern MEM_PLAIN_WORD<std::int64_t> mem_tbb_flushed_peak;          // highest peak that a flush has kept
extern MEM_PLAIN_WORD<std::uint64_t> mem_tbb_peak_timeline_index;  // timeline index at the last recorded peak
