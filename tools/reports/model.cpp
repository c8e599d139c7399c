#include "tools/reports/model.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>

namespace memview {
namespace {

constexpr std::uint32_t FREE = UINT32_MAX;
constexpr std::size_t FIRST_SLOTS = 1024;
constexpr std::size_t BLOCK = std::size_t{64} << 10;

std::uint32_t hash_of(std::string_view text) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(text));
}

}  // namespace

Names::Names() : m_slots(FIRST_SLOTS, Slot{0, FREE}) {
    id_of({});
}

std::uint32_t Names::id_of(std::string_view text) {
    const std::uint32_t hash = hash_of(text);
    std::size_t at = hash & (m_slots.size() - 1);
    for (; m_slots[at].id != FREE; at = (at + 1) & (m_slots.size() - 1)) {
        if (m_slots[at].hash == hash && m_texts[m_slots[at].id] == text) return m_slots[at].id;
    }
    const auto id = static_cast<std::uint32_t>(m_texts.size());
    m_slots[at] = {hash, id};
    m_texts.push_back(keep(text));
    if (m_texts.size() * 2 > m_slots.size()) grow();
    return id;
}

std::string_view Names::keep(std::string_view text) {
    if (text.empty()) return "";
    if (text.size() > m_left) {
        m_left = std::max(BLOCK, text.size());
        m_blocks.push_back(std::make_unique_for_overwrite<char[]>(m_left));
    }
    // Blocks are filled from their end, so that what is left of one says where the next text goes.
    m_left -= text.size();
    char* const place = m_blocks.back().get() + m_left;
    std::memcpy(place, text.data(), text.size());
    return {place, text.size()};
}

void Names::grow() {
    std::vector<Slot> old(m_slots.size() * 2, Slot{0, FREE});
    old.swap(m_slots);
    for (const Slot& slot : old) {
        if (slot.id == FREE) continue;
        std::size_t at = slot.hash & (m_slots.size() - 1);
        while (m_slots[at].id != FREE) at = (at + 1) & (m_slots.size() - 1);
        m_slots[at] = slot;
    }
}

void Cells::push_wide(std::int64_t value) {
    if (m_wide.empty()) {
        m_wide.reserve(m_narrow.capacity());
        m_wide.assign(m_narrow.begin(), m_narrow.end());
        std::vector<std::int32_t>().swap(m_narrow);
    }
    m_wide.push_back(value);
}

std::int64_t Cells::sum() const {
    return m_wide.empty() ? std::accumulate(m_narrow.begin(), m_narrow.end(), std::int64_t{0})
                          : std::accumulate(m_wide.begin(), m_wide.end(), std::int64_t{0});
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
