#pragma once

#include <ostream>

#include "tools/memview/options.h"
#include "tools/reports/model.h"

namespace memview {

// Prints a line for each limit and each disagreement. Gives whether all held. Throws ReportError when a limit
// cannot be tested because the run has no such report.
bool check(const Folder& folder, const Options& options, std::ostream& out);

}  // namespace memview
