#pragma once

#include <ostream>

#include "tools/memview/options.h"
#include "tools/memview/terminal.h"
#include "tools/reports/model.h"

namespace memview {

// The answer in a terminal: totals, series and the top rows of each table.
void show(const Folder& folder, const Options& options, const Terminal& terminal, std::ostream& out);

}  // namespace memview
