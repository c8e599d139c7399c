#include "tools/memview/places.h"

namespace memview {
std::size_t PlaceHash::operator()(const Place& place) const {
    std::uint64_t hash = 0;
    for (const std::int64_t part : {place.module, place.file, place.function, place.line}) {
        hash = (hash ^ static_cast<std::uint64_t>(part)) * 0x9e3779b97f4a7c15;
        hash ^= hash >> 32;
    }
    return hash;
}

PlaceReader::PlaceReader(const Table& table)
    : module_(*table.cells(table.column("module") >= 0 ? "module" : "name")),
      file_(table.cells("file")),
      function_(table.cells("function")),
      line_(table.cells("line")) {}

Place PlaceReader::operator[](std::size_t row) const {
    if (file_ == nullptr) return {module_[row]};
    return {module_[row], (*file_)[row], (*function_)[row], (*line_)[row]};
}

void add_sums(const Table& table, const std::string& column, Side side, PlaceSums& sums) {
    const Cells& values = *table.cells(column);
    const PlaceReader places(table);
    for (std::size_t row = 0; row < table.rows; ++row) {
        Pair& pair = sums[places[row]];
        (side == Side::before ? pair.before : pair.after) += values[row];
        (side == Side::before ? pair.is_before : pair.is_after) = true;
    }
}

std::string to_text(const Place& place, const Names& names) {
    std::string text(names.text(place.module));
    text.append(" ").append(names.text(place.file)).append(":").append(std::to_string(place.line));
    return text.append(" ").append(names.text(place.function));
}

}  // namespace memview
