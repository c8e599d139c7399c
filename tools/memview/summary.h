#pragma once

// The figures of a whole run, each from the report that knows it best.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

struct Figure {
    std::string key;    // stable name
    std::string title;  // for people
    std::int64_t value = 0;
    Unit unit = Unit::bytes;
    std::string explanation;  // how to read it, in a sentence
};

// The figures that the run's reports hold, the most asked-for first.
std::vector<Figure> summary(const Run& run);

// What was tracked, by the files that are there: "call sites", "modules", "bins and tags", ...
std::vector<std::string> tracked(const Run& run);

// The run held more at its end than at its recorded peak, as one that only grows does: peaks are recorded at
// frees.
bool grew_to_its_end(const Run& run);
// The most bytes that the run is known to have held: at its exact peak where there are call paths, else at
// its recorded peak or at its end. Empty when no report holds a peak.
std::optional<std::int64_t> peak_bytes(const Run& run);
// From the leak report or the fast summary; empty when the run wrote neither.
std::optional<std::int64_t> leaked_bytes(const Run& run);

}  // namespace memview
