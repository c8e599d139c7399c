#include "tools/memview/model.h"

#include <numeric>

namespace memview {

std::uint32_t Names::id_of(std::string_view text) {
    const auto found = m_ids.find(text);
    if (found != m_ids.end()) return found->second;
    const auto id = static_cast<std::uint32_t>(m_texts.size());
    m_texts.emplace_back(text);
    m_ids.emplace(m_texts.back(), id);
    return id;
}

int Table::column(std::string_view column_key) const {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].spec.key == column_key) return static_cast<int>(i);
    }
    return -1;
}

const std::vector<std::int64_t>* Table::cells(std::string_view column_key) const {
    const int index = column(column_key);
    return index < 0 ? nullptr : &columns[static_cast<std::size_t>(index)].cells;
}

std::int64_t Table::sum(std::string_view column_key) const {
    const std::vector<std::int64_t>* values = cells(column_key);
    return values == nullptr ? 0 : std::accumulate(values->begin(), values->end(), std::int64_t{0});
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
