#include "mem/bins/profile_bin_table.h"

#include <mutex>

MEM_PROFILE_BIN_TABLE* mem_tbb_bin_table = nullptr;
MEM_PROFILE_BIN_TABLE* mem_tbb_tag_table = nullptr;

void MEM_PROFILE_BIN::clear() {
    tally.clear();
    tally.ignore_highest_blocks();
    peak = 0;
    flushed_peak = 0;
}

void MEM_PROFILE_BIN_TABLE::add_bytes(MEM_TURN& turn, std::uint64_t bytes, std::uint32_t id) {
    row_of(turn, id).tally.charge(turn, bytes, bytes);
}

void MEM_PROFILE_BIN_TABLE::remove_bytes(MEM_TURN& turn, std::uint64_t bytes, std::uint32_t id) {
    row_of(turn, id).tally.discharge(turn, bytes);
}

void MEM_PROFILE_BIN_TABLE::grow(std::uint32_t id) {
    const std::unique_lock guard(grow_lock);
    if (id < rows.size()) return;
    rows.reserve(id + 1);
    rows.set_size(id + 1);
}

template <class CHANGE>
void MEM_PROFILE_BIN_TABLE::change_all(CHANGE change) {
    for (std::uint32_t id = 0; id < rows.size(); ++id) change(rows[id]);
}

void MEM_PROFILE_BIN_TABLE::take_peak() {
    change_all([](MEM_PROFILE_BIN& row) { row.peak = row.tally.read().current_bytes; });
}

void MEM_PROFILE_BIN_TABLE::flush_peak() {
    change_all([](MEM_PROFILE_BIN& row) { row.flushed_peak = std::int64_t{row.peak}; });
}

void MEM_PROFILE_BIN_TABLE::restore_peak() {
    change_all([](MEM_PROFILE_BIN& row) { row.peak = std::int64_t{row.flushed_peak}; });
}

void MEM_PROFILE_BIN_TABLE::clear() {
    for (std::uint32_t id = 0; id < rows.size(); ++id) rows[id].clear();
    rows.set_size(0);
}
