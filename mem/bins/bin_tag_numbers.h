// MEM_BIN_TAG_NUMBERS: a number for each pair of a bin and a tag that blocks were allocated under, for the
// table by address. Safe from any thread and inside an event. Numbers stay, also at a reset.
#pragma once

#include <atomic>
#include <cstdint>
#include <unordered_map>

#include "mem/base/spin_lock.h"
#include "mem/base/steady_array.h"

struct MEM_BIN_TAG_ENTRY {
    std::uint32_t bin_id = 0;
    std::uint32_t tag_id = 0;

    bool operator==(const MEM_BIN_TAG_ENTRY&) const = default;
};

class MEM_BIN_TAG_NUMBERS {
  public:
    static constexpr std::uint32_t none = 0;
    static constexpr std::uint32_t most = (1U << 27) - 1;

    MEM_BIN_TAG_NUMBERS();

    // Never none, but for a pair beyond the most.
    std::uint32_t number_of(const MEM_BIN_TAG_ENTRY& entry) {
        // Acquire: who has the number can ask for its entry.
        const std::uint32_t known = latest.load(std::memory_order_acquire);
        return known != none && entries[known] == entry ? known : find_or_make(entry);
    }

    // "Root" for none.
    const MEM_BIN_TAG_ENTRY& of(std::uint32_t number) const { return entries[number]; }

  private:
    std::uint32_t find_or_make(const MEM_BIN_TAG_ENTRY& entry);

    MEM_STEADY_ARRAY<MEM_BIN_TAG_ENTRY> entries;
    std::atomic<std::uint32_t> latest{none};  // bins seldom change
    MEM_SPIN_LOCK lock;                       // guards the map, and who adds an entry
    std::unordered_map<std::uint64_t, std::uint32_t> numbers MEM_GUARDED_BY(lock);
};

extern MEM_BIN_TAG_NUMBERS* mem_bin_tag_numbers;
