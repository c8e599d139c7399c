// When a peak is recorded: a total that is twice the last recorded peak, or that lies behind the next line of
// a fixed grid, is a new one. The trigger is the lesser of the two.
//
// Events need not add up the total to find out. The highest value that it ever had is kept right below the
// trigger: once that has risen to it, the next free adds up and decides. The words are plain: two threads can
// find the same peak, and record it one after the other.
#pragma once

#include <cstdint>

#include "mem/base/tracking_word.h"
#include "mem/tracker/tracker_state.h"

class MEM_PEAK_SEARCH {
  public:
    // Sets the grid, in bytes, before the first event.
    void start(std::int64_t grid_bytes);

    // The total has been high enough; it may have fallen since.
    bool has_risen() const { return mem_tbb_total_bytes.highest_bytes() >= trigger; }
    bool is_peak(std::int64_t total) const { return total >= trigger; }
    // The total rose and fell between two frees, which makes no peak: waits for the next time.
    void wait_for_rise();
    void record(std::int64_t total);
    // Searches anew, as after the start.
    void restart();

    std::int64_t recorded() const { return recorded_peak; }      // mem_tbb_recorded_peak
    std::int64_t next_doubling() const { return doubled_peak; }  // mem_tbb_next_peak
    // What messages name as the next peak after this one. They round it up to the grid; so for a peak on a
    // line of the grid they show that line, where the trigger is the line above.
    std::int64_t next_shown_after(std::int64_t peak) const;

  private:
    static constexpr std::int64_t first_target = 1024;

    // `target` stands for the doubled peak where there is none yet.
    void search_beyond(std::int64_t peak, std::int64_t target);

    MEM_PLAIN_WORD<std::int64_t> trigger{first_target};
    MEM_PLAIN_WORD<std::int64_t> doubled_peak{first_target};
    MEM_PLAIN_WORD<std::int64_t> recorded_peak{0};
    MEM_PLAIN_WORD<std::int64_t> grid{MEM_TRACKING_SAMPLING{}.fileline_peak_snapshot_threshold};
};

extern MEM_PEAK_SEARCH mem_tbb_peak_search;
extern MEM_PLAIN_WORD<std::int64_t> mem_tbb_flushed_peak;          // highest peak that a flush has kept
extern MEM_PLAIN_WORD<std::uint64_t> mem_tbb_peak_timeline_index;  // timeline index at the last recorded peak
