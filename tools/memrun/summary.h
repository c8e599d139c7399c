// What the launcher says at the end of a run.
#pragma once

#include <string>

#include "tools/memrun/finished_run.h"
#include "tools/memrun/options.h"

namespace memrun {

// Whether every tracked process wrote its reports at its end.
bool ended_with_reports(const std::vector<ProcessNote>& notes);

// The summary: some ten lines, each with its line end.
std::string summary_text(const Run& run, const Options& options, bool with_colour);

// Whether standard error takes colour: a terminal, and NO_COLOR not set.
bool takes_colour();

}  // namespace memrun
