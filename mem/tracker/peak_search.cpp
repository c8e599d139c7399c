#include "mem/tracker/peak_search.h"

#include <algorithm>

MEM_PEAK_SEARCH mem_tbb_peak_search;
constinit MEM_PLAIN_WORD<std::int64_t> mem_tbb_flushed_peak;
constinit MEM_PLAIN_WORD<std::uint64_t> mem_tbb_peak_timeline_index;

namespace {

// cells * grid, at most the highest total there can be.
std::int64_t grid_line(std::int64_t cells, std::int64_t grid) {
    std::int64_t line = 0;
    return __builtin_mul_overflow(cells, grid, &line) ? INT64_MAX : line;
}

}  // namespace

std::int64_t mem_peak_trigger(std::int64_t next, std::int64_t recorded, std::int64_t grid) {
    return std::min(next, grid_line(recorded / grid + 1, grid));
}

std::int64_t mem_next_peak_at_least(std::int64_t total, std::int64_t grid) {
    const std::int64_t cells = total / grid + (total % grid != 0 ? 1 : 0);
    return std::min(grid_line(2, total), grid_line(cells, grid));
}

void MEM_PEAK_SEARCH::watch() {
    mem_tbb_total_bytes.restart_highest(trigger - 1);
}

bool MEM_PEAK_SEARCH::is_due(std::int64_t total) {
    if (total >= trigger) return true;
    watch();
    return false;
}

void MEM_PEAK_SEARCH::start(std::int64_t grid_bytes) {
    grid = grid_bytes;
    restart();
}

void MEM_PEAK_SEARCH::record(std::int64_t total) {
    recorded_peak = total;
    next_peak = grid_line(2, total);
    trigger = mem_peak_trigger(next_peak, total, grid);
    watch();
}

void MEM_PEAK_SEARCH::restart() {
    mem_tbb_total_bytes.ignore_highest_blocks();  // also when the total was cleared
    recorded_peak = 0;
    next_peak = first_target;
    trigger = mem_peak_trigger(first_target, 0, grid);
    mem_tbb_total_bytes.ignore_highest_blocks();  // also after the total was cleared
    watch();
}
