#pragma once

// All marks of a run side by side: what grew from one to the next.

#include <ostream>
#include <string>
#include <vector>

#include "tools/memview/places.h"
#include "tools/memview/terminal.h"

namespace memview {

struct GrowingSite {
    Place place;
    std::vector<std::int64_t> held;  // current bytes, by mark

    std::int64_t growth() const { return held.back() - held.front(); }
};

struct Growth {
    std::shared_ptr<Names> names;
    std::vector<std::string> marks;  // in the order in which they were made
    std::vector<std::int64_t> totals;
    std::vector<GrowingSite> sites;  // the one that grew most first
    std::vector<std::string> left_out;
};

// Reads the marks below the folder of a run, of one process where its middle word is given. Throws
// ReportError when there are fewer than two.
Growth read_growth(const std::string& folder, const std::string& process, bool keep_going);

// The highest `top` sites, 0 for all.
void print_growth(const Growth& growth, std::size_t top, const Terminal& terminal, std::ostream& out);
void write_growth_json(const Growth& growth, std::ostream& out);

}  // namespace memview
