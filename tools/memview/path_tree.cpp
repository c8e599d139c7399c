#include "tools/memview/path_tree.h"

#include <algorithm>
#include <cstdlib>

namespace memview {
namespace {

// How large a node with all below it is at most, as a share of the whole in any of the columns. No child has
// more than its parent.
std::vector<float> weights_of(const Table& nodes, std::span<const char* const> columns) {
    std::vector<float> weights(nodes.rows + 1);
    std::vector<double> sums(nodes.rows + 1);
    const Cells& parent = *nodes.cells("parent");
    for (const char* column : columns) {
        const Cells& own = *nodes.cells(column);
        std::fill(sums.begin(), sums.end(), 0);
        for (std::size_t node = nodes.rows; node > 0; --node) {
            sums[node] += static_cast<double>(std::llabs(own[node - 1]));
            sums[static_cast<std::size_t>(parent[node - 1])] += sums[node];
        }
        if (sums[0] == 0) continue;
        for (std::size_t node = 0; node <= nodes.rows; ++node)
            weights[node] = std::max(weights[node], static_cast<float>(sums[node] / sums[0]));
    }
    return weights;
}

// By node; of equal ones the first, so that a kept node's parent is kept.
std::vector<bool> kept_nodes(const Paths& paths, std::span<const char* const> columns, std::size_t most) {
    const std::size_t count = paths.nodes.rows;
    if (count <= most) return std::vector<bool>(count + 1, true);
    const std::vector<float> weights = weights_of(paths.nodes, columns);
    std::vector<std::uint32_t> order(count);
    for (std::uint32_t i = 0; i < count; ++i) order[i] = i + 1;
    std::nth_element(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(most), order.end(),
                     [&](std::uint32_t a, std::uint32_t b) {
                         return weights[a] == weights[b] ? a < b : weights[a] > weights[b];
                     });
    std::vector<bool> kept(count + 1);
    for (std::size_t i = 0; i < most; ++i) kept[order[i]] = true;
    kept[0] = true;
    return kept;
}

}  // namespace

PathTree::PathTree(Names& names, std::size_t figures) : names_(names), figures_(figures) {
    Place root;
    root.function = names.id_of(all_paths);
    nodes_.push_back({0, frame_number(root, false)});
    own_.resize(figures_);
}

std::uint32_t PathTree::frame_number(const Place& place, bool filtered) {
    const auto next = static_cast<std::uint32_t>(frames_.size());
    const auto [found, is_new] = frame_numbers_[filtered ? 1 : 0].try_emplace(place, next);
    if (is_new) frames_.push_back({place, filtered});
    return found->second;
}

std::uint32_t PathTree::child(std::uint32_t parent, std::uint32_t frame) {
    const std::uint64_t key = std::uint64_t{parent} << 32 | frame;
    const auto [found, is_new] = children_.try_emplace(key, static_cast<std::uint32_t>(nodes_.size()));
    if (is_new) {
        nodes_.push_back({parent, frame});
        own_.resize(own_.size() + figures_);
    }
    return found->second;
}

// By frame of the report the frames of the tree that it stands for, from the outside in.
std::vector<std::vector<std::uint32_t>> PathTree::frames_of(const Paths& paths, const TreeForm& form) {
    const PlaceReader places(paths.frames);
    const Cells& filtered = *paths.frames.cells("filtered");
    std::vector<std::vector<std::uint32_t>> all(paths.first_level.size() - 1);
    Place deeper;
    deeper.function = names_.id_of(deeper_frames);
    all[0] = {frame_number(deeper, false)};
    for (std::size_t frame = 1; frame < all.size(); ++frame) {
        for (std::size_t row = paths.first_level[frame + 1]; row > paths.first_level[frame]; --row) {
            const bool is_filtered = filtered[row - 1] != 0;
            if (is_filtered && !form.with_filtered) continue;
            Place place = places[row - 1];
            if (!form.with_lines) place.line = 0;
            all[frame].push_back(frame_number(place, is_filtered));
        }
    }
    return all;
}

void PathTree::add(const Paths& paths, std::span<const char* const> columns, std::size_t first,
                   const TreeForm& form) {
    const std::vector<bool> kept = kept_nodes(paths, columns, form.most_nodes);
    const std::vector<std::vector<std::uint32_t>> frames = frames_of(paths, form);
    Place others;
    others.function = names_.id_of(name_of_others);
    const std::uint32_t others_frame = frame_number(others, false);
    const Cells& parents = *paths.nodes.cells("parent");
    const Cells& node_frames = *paths.nodes.cells("frame");
    std::vector<const Cells*> cells;
    for (const char* column : columns) cells.push_back(paths.nodes.cells(column));
    std::vector<std::uint32_t> place(paths.nodes.rows + 1);  // in the tree, of each node of the report
    for (std::size_t node = 1; node <= paths.nodes.rows; ++node) {
        const auto parent = static_cast<std::size_t>(parents[node - 1]);
        std::uint32_t at = place[parent];
        if (kept[node]) {
            for (const std::uint32_t frame : frames[static_cast<std::size_t>(node_frames[node - 1])])
                at = child(at, frame);
        } else if (kept[parent]) {
            at = child(at, others_frame);
        }
        place[node] = at;
        for (std::size_t i = 0; i < cells.size(); ++i)
            own_[at * figures_ + first + i] += (*cells[i])[node - 1];
    }
}

std::vector<std::int64_t> PathTree::with_children(std::size_t figure) const {
    std::vector<std::int64_t> sums(nodes_.size());
    for (std::size_t node = nodes_.size(); node-- > 0;) {
        sums[node] += own(node, figure);
        if (node > 0) sums[nodes_[node].parent] += sums[node];
    }
    return sums;
}

std::string frame_name(const Place& place, const Names& names) {
    if (place.function != 0) return std::string(names.text(place.function));
    if (place.module != 0) return "[" + std::string(names.text(place.module)) + "]";
    return "[unknown]";
}

}  // namespace memview
