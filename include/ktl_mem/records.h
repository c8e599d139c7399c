// The records that the tracker keeps and hands out as copies.
#pragma once

#include <cstdint>

// The counters of a call site or of a module. Bytes are allocated sizes unless the name says requested.
// Current values can fall below zero: a free of a block that the tracker does not know is booked against
// what could not be attributed.
struct MEMORY_TRACKER_BASE {
    std::int32_t current_blocks = 0;              // charged here and not yet freed
    std::int32_t max_blocks = 0;                  // highest value that current_blocks has had
    std::int32_t peak_blocks = 0;                 // current_blocks at the latest recorded peak of the process
    std::int64_t cumulative_blocks = 0;           // ever charged here
    std::int64_t current_bytes = 0;               // charged here and not yet freed
    std::int64_t max_bytes = 0;                   // highest value that current_bytes has had
    std::int64_t peak_bytes = 0;                  // current_bytes at the latest recorded peak of the process
    std::int64_t cumulative_bytes = 0;            // ever charged here
    std::int64_t cumulative_requested_bytes = 0;  // what the callers asked for
    std::int64_t cumulative_mismatched_bytes = 0;  // of blocks up to 8128 bytes, freed on another thread
};

// The text of one stack frame. Texts are zero-terminated, and empty when unknown.
struct MEM_STACK_FRAME {
    std::uint64_t pc = 0;
    std::uint32_t line = 0;  // 0 when unknown
    char module[65] = {};
    char file[257] = {};
    char function[513] = {};
};

// One call site: its counters and the frame that is held responsible.
struct MEM_ADDRESS_TRACKER : MEMORY_TRACKER_BASE {
    MEM_STACK_FRAME frame;
    MEMORY_TRACKER_BASE* module_tracker = nullptr;  // the tracker's own; a host must not follow it
    bool is_filtered = false;                       // no stack stops here
};
