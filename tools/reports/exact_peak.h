#pragma once

// Everybody's share at the exact peak, which the call paths know.

#include <string>
#include <string_view>

#include "tools/reports/model.h"

namespace memview {

// Adds the columns "exact_peak" and "exact_peak_blocks" to the call sites and the modules of a run that has
// call paths.
void add_exact_peaks(Run& run, Names& names);

// The column that people mean by "peak" or "peak_blocks" in this table: the exact one where it stands, else
// the recorded one. Any other key is itself.
std::string meant_column(const Table& table, const std::string& key);

}  // namespace memview
