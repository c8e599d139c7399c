// MEM_TIMELINE_LABELS: the series of labels of the module timelines. It lies with the bins because opening a
// bin sets labels.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "ktl_mem/timelines.h"
#include "mem/base/spin_lock.h"
#include "mem/bins/run_series.h"

class MEM_TIMELINE_LABELS {
  public:
    // Any thread. The allocations of set_label must not be events: their sample point would take this lock.
    void set_label(const std::string& label);
    // The event path: counts one sample under the label in force.
    void sample();

    // Walks the labels from the first sample on, and keeps everybody else out until it is gone. In a report
    // it is made after the timeline's mutex is taken.
    class READER {
      public:
        explicit READER(MEM_TIMELINE_LABELS& all) : labels(all), held(all.lock), cursor(all.series) {}
        // Past the last sample, the label in force: the sample that a report can miss here is one whose
        // values are already in the timeline and which is about to be counted under that label.
        std::string_view next() {
            const std::string* label = cursor.next();
            return label != nullptr ? *label : labels.current_label;
        }

      private:
        MEM_TIMELINE_LABELS& labels;
        std::unique_lock<MEM_SPIN_LOCK> held;
        MEM_RUN_CURSOR<std::string> cursor;
    };

  private:
    MEM_SPIN_LOCK lock;  // guards both
    MEM_RUN_SERIES<std::string> series;
    std::string current_label;
};

extern MEM_TIMELINE_LABELS* mem_tbb_timeline_labels;
