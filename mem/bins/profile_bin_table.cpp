#include "mem/bins/profile_bin_table.h"

#include <mutex>

#include "mem/base/counting.h"
#include "mem/base/stats.h"

MEM_PROFILE_BIN_TABLE* mem_tbb_bin_table = nullptr;
MEM_PROFILE_BIN_TABLE* mem_tbb_tag_table = nullptr;

namespace {

void copy_counter(std::atomic<std::int64_t>& to, const std::atomic<std::int64_t>& from) {
    to.store(from.load(std::memory_order_relaxed), std::memory_order_relaxed);
}

void set_to_zero(MEM_PROFILE_BIN& row) {
    for (auto* counter : {&row.current, &row.max, &row.cumulative, &row.peak, &row.flushed_peak})
        counter->store(0, std::memory_order_relaxed);
}

}  // namespace

void MEM_PROFILE_BIN_TABLE::add_bytes(std::uint64_t bytes, std::uint32_t id) {
    const auto added = static_cast<std::int64_t>(bytes);
    const MEM_GATE_SCOPE inside(gate, MEM_MOUSE);
    MEM_PROFILE_BIN& row = row_of(id);
    mem_raise_to(row.max, mem_add(row.current, added));
    mem_add(row.cumulative, added);
}

void MEM_PROFILE_BIN_TABLE::remove_bytes(std::uint64_t bytes, std::uint32_t id) {
    const MEM_GATE_SCOPE inside(gate, MEM_MOUSE);
    mem_add(row_of(id).current, -static_cast<std::int64_t>(bytes));
}

void MEM_PROFILE_BIN_TABLE::grow(std::uint32_t id) {
    const std::unique_lock guard(grow_lock);
    if (id < rows.size()) return;
    rows.reserve(id + 1);
    rows.set_size(id + 1);
}

template <class CHANGE>
void MEM_PROFILE_BIN_TABLE::change_all(CHANGE change) {
    const MEM_GATE_SCOPE alone(gate, MEM_CAT);
    for (std::uint32_t id = 0; id < rows.size(); ++id) change(rows[id]);
}

void MEM_PROFILE_BIN_TABLE::take_peak() {
    change_all([](MEM_PROFILE_BIN& row) { copy_counter(row.peak, row.current); });
}

void MEM_PROFILE_BIN_TABLE::flush_peak() {
    change_all([](MEM_PROFILE_BIN& row) { copy_counter(row.flushed_peak, row.peak); });
}

void MEM_PROFILE_BIN_TABLE::restore_peak() {
    change_all([](MEM_PROFILE_BIN& row) { copy_counter(row.peak, row.flushed_peak); });
}

void MEM_PROFILE_BIN_TABLE::clear() {
    const MEM_GATE_SCOPE alone(gate, MEM_CAT);
    clear_at_rest();
}

void MEM_PROFILE_BIN_TABLE::clear_at_rest() {
    for (std::uint32_t id = 0; id < rows.size(); ++id) set_to_zero(rows[id]);
    rows.set_size(0);
}
