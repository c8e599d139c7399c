#pragma once

#include <ostream>

#include "tools/memview/options.h"
#include "tools/memview/terminal.h"
#include "tools/reports/model.h"

namespace memview {

// The call paths of a run as a tree in the terminal, callers at the root, with as many of its largest places
// as the screen or --top allows. What is filtered is folded. Throws ReportError when the run has no call
// paths.
void show_tree(const Run& run, Names& names, const Options& options, const Terminal& terminal,
               std::ostream& out);

}  // namespace memview
