#include "tools/reports/model.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>

namespace memview {
namespace {

constexpr std::uint32_t free_slot = UINT32_MAX;
constexpr std::size_t first_slots = 1024;
constexpr std::size_t block_bytes = std::size_t{64} << 10;

std::uint32_t hash_of(std::string_view text) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(text));
}

}  // namespace

Names::Names() : slots_(first_slots, Slot{0, free_slot}) {
    id_of({});
}

std::uint32_t Names::id_of(std::string_view text) {
    const std::uint32_t hash = hash_of(text);
    std::size_t at = hash & (slots_.size() - 1);
    for (; slots_[at].id != free_slot; at = (at + 1) & (slots_.size() - 1)) {
        if (slots_[at].hash == hash && texts_[slots_[at].id] == text) return slots_[at].id;
    }
    const auto id = static_cast<std::uint32_t>(texts_.size());
    slots_[at] = {hash, id};
    texts_.push_back(keep(text));
    if (texts_.size() * 2 > slots_.size()) grow();
    return id;
}

std::string_view Names::keep(std::string_view text) {
    if (text.empty()) return "";
    if (text.size() > left_) {
        left_ = std::max(block_bytes, text.size());
        blocks_.push_back(std::make_unique_for_overwrite<char[]>(left_));
    }
    // Blocks are filled from their end, so that what is left of one says where the next text goes.
    left_ -= text.size();
    char* const place = blocks_.back().get() + left_;
    std::memcpy(place, text.data(), text.size());
    return {place, text.size()};
}

void Names::grow() {
    std::vector<Slot> old(slots_.size() * 2, Slot{0, free_slot});
    old.swap(slots_);
    for (const Slot& slot : old) {
        if (slot.id == free_slot) continue;
        std::size_t at = slot.hash & (slots_.size() - 1);
        while (slots_[at].id != free_slot) at = (at + 1) & (slots_.size() - 1);
        slots_[at] = slot;
    }
}

void Cells::push_wide(std::int64_t value) {
    if (wide_.empty()) {
        wide_.reserve(narrow_.capacity());
        wide_.assign(narrow_.begin(), narrow_.end());
        std::vector<std::int32_t>().swap(narrow_);
    }
    wide_.push_back(value);
}

std::int64_t Cells::sum() const {
    return wide_.empty() ? std::accumulate(narrow_.begin(), narrow_.end(), std::int64_t{0})
                         : std::accumulate(wide_.begin(), wide_.end(), std::int64_t{0});
}

void Table::add_row(std::span<const std::int64_t> row) {
    for (std::size_t i = 0; i < row.size(); ++i) columns[i].cells.push_back(row[i]);
    ++rows;
}

int Table::column(std::string_view column_key) const {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].spec.key == column_key) return static_cast<int>(i);
    }
    return -1;
}

const Cells* Table::cells(std::string_view column_key) const {
    const int index = column(column_key);
    return index < 0 ? nullptr : &columns[static_cast<std::size_t>(index)].cells;
}

std::int64_t Table::sum(std::string_view column_key) const {
    const Cells* values = cells(column_key);
    return values == nullptr ? 0 : values->sum();
}

Table empty_table(std::string key, std::string file, std::span<const ColumnSpec> columns) {
    Table table;
    table.key = std::move(key);
    table.file = std::move(file);
    for (const ColumnSpec& spec : columns) table.columns.push_back({spec, {}});
    return table;
}

std::vector<std::int64_t> SampleClock::times_of(const std::vector<std::uint64_t>& rows,
                                                std::uint64_t samples) const {
    std::vector<std::int64_t> times;
    if (milliseconds.size() < samples) return times;
    for (const std::uint64_t row : rows) times.push_back(milliseconds[milliseconds.size() - samples + row]);
    return times;
}

const Table* Run::table(std::string_view key) const {
    for (const Table& one : tables) {
        if (one.key == key) return &one;
    }
    return nullptr;
}

const Timeline* Run::timeline(const std::string& kind) const {
    const auto found = timelines.find(kind);
    return found == timelines.end() ? nullptr : &found->second;
}

}  // namespace memview
