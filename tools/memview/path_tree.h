#pragma once

// The call paths of one or two runs as a tree of places, callers at the root.

#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/memview/places.h"
#include "tools/reports/model.h"

namespace memview {

// How much of the paths a tree keeps.
struct TreeForm {
    bool with_lines = true;     // a place is a line, not only a function
    bool with_filtered = true;  // places that the search for the responsible frame passes over are nodes, too
    std::size_t most_nodes = SIZE_MAX;  // of the report; the smallest others are summed up at their parents
};

class PathTree {
  public:
    struct Frame {
        Place place;
        bool filtered = false;
    };
    struct Node {
        std::uint32_t parent = 0;  // comes before its children
        std::uint32_t frame = 0;
    };

    // Each node has that many figures of its own. The names are those of the paths.
    PathTree(Names& names, std::size_t figures);

    // Adds to the figures from `first` on these columns of the nodes.
    void add(const Paths& paths, std::span<const char* const> columns, std::size_t first,
             const TreeForm& form);

    // Node 0 is the root, frame 0 its name.
    const std::vector<Node>& nodes() const { return nodes_; }
    const std::vector<Frame>& frames() const { return frames_; }
    std::int64_t own(std::size_t node, std::size_t figure) const { return own_[node * figures_ + figure]; }
    // By node, what it and all below it have.
    std::vector<std::int64_t> with_children(std::size_t figure) const;

  private:
    std::uint32_t frame_number(const Place& place, bool filtered);
    std::uint32_t child(std::uint32_t parent, std::uint32_t frame);
    std::vector<std::vector<std::uint32_t>> frames_of(const Paths& paths, const TreeForm& form);

    Names& names_;
    std::size_t figures_;
    std::vector<Frame> frames_;
    std::vector<Node> nodes_;
    std::vector<std::int64_t> own_;
    std::unordered_map<Place, std::uint32_t, PlaceHash> frame_numbers_[2];  // by whether filtered
    std::unordered_map<std::uint64_t, std::uint32_t> children_;             // by parent and frame
};

inline constexpr const char* all_paths = "all";
inline constexpr const char* deeper_frames =
    "(deeper)";  // what lay beyond the depth that the tracker looks to
inline constexpr const char* name_of_others = "(others)";  // what was too small to be kept

// What a frame is called: its function, else its module, else that it is unknown.
std::string frame_name(const Place& place, const Names& names);

}  // namespace memview
