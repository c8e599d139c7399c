#pragma once

// Reports that were whole when their run ended, and are not any more.

#include <string>

#include "tools/reports/problems.h"

namespace memview {

// Adds a problem for each report of the folder that is shorter than the launcher noted, or gone. A folder
// without its note has none.
void find_cut_reports(const std::string& folder, Problems& problems);

}  // namespace memview
