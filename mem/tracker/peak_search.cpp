#include "mem/tracker/peak_search.h"

#include <algorithm>

MEM_PEAK_SEARCH mem_tbb_peak_search;
constinit MEM_PLAIN_WORD<std::int64_t> mem_tbb_flushed_peak;
constinit MEM_PLAIN_WORD<std::uint64_t> mem_tbb_peak_timeline_index;

namespace {

// At most the highest total there can be.
std::int64_t product(std::int64_t count, std::int64_t bytes) {
    std::int64_t result = 0;
    return __builtin_mul_overflow(count, bytes, &result) ? INT64_MAX : result;
}

}  // namespace

void MEM_PEAK_SEARCH::start(std::int64_t grid_bytes) {
    grid = grid_bytes;
    restart();
}

void MEM_PEAK_SEARCH::restart() {
    mem_tbb_total_bytes.ignore_highest_blocks();  // also after the total was cleared
    search_beyond(0, first_target);
}

void MEM_PEAK_SEARCH::record(std::int64_t total) {
    search_beyond(total, product(2, total));
}

void MEM_PEAK_SEARCH::search_beyond(std::int64_t peak, std::int64_t target) {
    recorded_peak = peak;
    doubled_peak = target;
    trigger = std::min(target, product(peak / grid + 1, grid));
    wait_for_rise();
}

void MEM_PEAK_SEARCH::wait_for_rise() {
    mem_tbb_total_bytes.restart_highest(trigger - 1);
}

std::int64_t MEM_PEAK_SEARCH::next_shown_after(std::int64_t peak) const {
    const std::int64_t cells = peak / grid + (peak % grid != 0 ? 1 : 0);
    return std::min(product(2, peak), product(cells, grid));
}
