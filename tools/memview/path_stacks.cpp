#include "tools/memview/path_stacks.h"

#include <algorithm>

#include "tools/memview/path_tree.h"

namespace memview {

PathStacks::PathStacks(const Paths& paths, Names& names)
    : paths_(paths),
      parents_(*paths.nodes.cells("parent")),
      frames_(*paths.nodes.cells("frame")),
      places_(paths.frames),
      names_(names) {
    deeper_.function = names.id_of(deeper_frames);
}

std::span<const std::uint32_t> PathStacks::frames(std::size_t node) {
    stack_.clear();
    for (; node != 0; node = static_cast<std::size_t>(parents_[node - 1]))
        stack_.push_back(static_cast<std::uint32_t>(frames_[node - 1]));
    return stack_;
}

std::span<const std::uint32_t> PathStacks::levels(std::uint32_t frame) {
    levels_.clear();
    if (frame == 0) levels_.push_back(deeper_row);
    for (std::uint32_t row = paths_.first_level[frame]; row < paths_.first_level[frame + 1]; ++row)
        levels_.push_back(row);
    return levels_;
}

std::span<const std::uint32_t> PathStacks::rows(std::size_t node) {
    rows_.clear();
    for (const std::uint32_t frame : frames(node)) {
        const std::span<const std::uint32_t> inwards = levels(frame);
        rows_.insert(rows_.end(), inwards.begin(), inwards.end());
    }
    std::reverse(rows_.begin(), rows_.end());
    return rows_;
}

Place PathStacks::place(std::uint32_t row) const {
    if (row == deeper_row) return deeper_;
    Place place = places_[row];
    if (place.function == 0) place.function = names_.id_of(frame_name(place, names_));
    return place;
}

}  // namespace memview
