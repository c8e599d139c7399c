// Run-length series: neighbouring equal values are one run with a count. Pure values, without a lock.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

template <class T>
struct MEM_RUN {
    T value;
    std::uint64_t count;  // consecutive samples with this value, at least 1
};

template <class T>
struct MEM_RUN_SERIES {
    std::vector<MEM_RUN<T>> runs;  // in sample order; neighbours differ
    std::uint64_t total = 0;       // sum of all counts

    void append(const T& value, std::uint64_t count = 1) {
        if (count == 0) return;
        if (!runs.empty() && runs.back().value == value)
            runs.back().count += count;
        else
            runs.push_back({value, count});
        total += count;
    }
};

// Reads a series sample by sample. The series must outlive the cursor and stand still meanwhile.
template <class T>
class MEM_RUN_CURSOR {
  public:
    explicit MEM_RUN_CURSOR(const MEM_RUN_SERIES<T>& series) : runs(&series.runs) {}

    // The next value, or null from the end on, however often it is called.
    const T* next() {
        if (run == runs->size()) return nullptr;
        const MEM_RUN<T>& here = (*runs)[run];
        if (++position == here.count) {
            ++run;
            position = 0;
        }
        return &here.value;
    }

  private:
    const std::vector<MEM_RUN<T>>* runs;
    std::size_t run = 0;
    std::uint64_t position = 0;
};
