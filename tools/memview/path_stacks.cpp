#include "tools/memview/path_stacks.h"

#include <algorithm>

#include "tools/memview/path_tree.h"

namespace memview {

PathStacks::PathStacks(const Paths& paths, Names& names)
    : m_paths(paths),
      m_parents(*paths.nodes.cells("parent")),
      m_frames(*paths.nodes.cells("frame")),
      m_places(paths.frames),
      m_names(names) {
    m_deeper.function = names.id_of(DEEPER);
}

std::span<const std::uint32_t> PathStacks::frames(std::size_t node) {
    m_stack.clear();
    for (; node != 0; node = static_cast<std::size_t>(m_parents[node - 1]))
        m_stack.push_back(static_cast<std::uint32_t>(m_frames[node - 1]));
    return m_stack;
}

std::span<const std::uint32_t> PathStacks::levels(std::uint32_t frame) {
    m_levels.clear();
    if (frame == 0) m_levels.push_back(DEEPER_ROW);
    for (std::uint32_t row = m_paths.first_level[frame]; row < m_paths.first_level[frame + 1]; ++row)
        m_levels.push_back(row);
    return m_levels;
}

std::span<const std::uint32_t> PathStacks::rows(std::size_t node) {
    m_rows.clear();
    for (const std::uint32_t frame : frames(node)) {
        const std::span<const std::uint32_t> inwards = levels(frame);
        m_rows.insert(m_rows.end(), inwards.begin(), inwards.end());
    }
    std::reverse(m_rows.begin(), m_rows.end());
    return m_rows;
}

Place PathStacks::place(std::uint32_t row) const {
    if (row == DEEPER_ROW) return m_deeper;
    Place place = m_places[row];
    if (place.function == 0) place.function = m_names.id_of(frame_name(place, m_names));
    return place;
}

}  // namespace memview
