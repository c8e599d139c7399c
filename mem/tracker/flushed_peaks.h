// The best peak that a flush has kept, by call site.
#pragma once

#include <cstdint>
#include <unordered_map>

struct MEM_FLUSHED_PEAK {
    std::int64_t peak_bytes = 0;
    std::int32_t peak_blocks = 0;
};

// Null until the first flush with a new best peak. Guarded by mem_call_site_lock.
extern std::unordered_map<std::uint64_t, MEM_FLUSHED_PEAK>* mem_tbb_flushed_peaks;

// Before the final reports: the kept peak comes back into the records, the bins and the tags when it is not
// below the latest one. A record that the flush did not know then shows a peak of 0.
void mem_restore_flushed_peaks();
