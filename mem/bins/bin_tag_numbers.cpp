#include "mem/bins/bin_tag_numbers.h"

MEM_BIN_TAG_NUMBERS* mem_bin_tag_numbers = nullptr;

MEM_BIN_TAG_NUMBERS::MEM_BIN_TAG_NUMBERS() {
    entries.reserve(1);
    entries.set_size(1);
}

std::uint32_t MEM_BIN_TAG_NUMBERS::find_or_make(const MEM_BIN_TAG_ENTRY& entry) {
    const MEM_LOCK_SCOPE guard(lock);
    const std::uint32_t next = entries.size();
    const std::uint64_t key = std::uint64_t{entry.bin_id} << 32 | entry.tag_id;
    std::uint32_t& number = numbers[key];
    if (number == none) {
        if (next > most) return none;
        entries.reserve(next + 1);
        entries[next] = entry;
        entries.set_size(next + 1);
        number = next;
    }
    latest.store(number, std::memory_order_release);
    return number;
}
