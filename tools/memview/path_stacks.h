#pragma once

// The stacks that the nodes of call paths stand for.

#include <span>
#include <vector>

#include "tools/memview/places.h"
#include "tools/reports/model.h"

namespace memview {

class PathStacks {
  public:
    static constexpr std::uint32_t deeper_row =
        UINT32_MAX;  // of what lay beyond the depth that the tracker looks to

    // The names are those of the paths, which must outlive this.
    PathStacks(const Paths& paths, Names& names);

    // Frames of the report, from the leaf outwards; 0 is what lay deeper. Valid until the next call.
    std::span<const std::uint32_t> frames(std::size_t node);
    // Rows of the frames' table, from the outside in, with a row for each inlined function. Valid until the
    // next call.
    std::span<const std::uint32_t> rows(std::size_t node);
    // The rows of one frame, the innermost function first.
    std::span<const std::uint32_t> levels(std::uint32_t frame);
    // What a row is called, with file and line.
    Place place(std::uint32_t row) const;

  private:
    const Paths& paths_;
    const Cells& parents_;
    const Cells& frames_;
    PlaceReader places_;
    Place deeper_;
    Names& names_;
    std::vector<std::uint32_t> stack_;
    std::vector<std::uint32_t> rows_;
    std::vector<std::uint32_t> levels_;
};

}  // namespace memview
