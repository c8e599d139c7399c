// What the launcher says at the end of a run.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/notes.h"
#include "tools/memrun/options.h"
#include "tools/memrun/run.h"

namespace memrun {

struct Run {
    std::string program_name;
    std::string output;
    Ending ending;
    std::vector<ProcessNote> notes;
};

// The summary, at most ten lines, each with its line end.
std::string summary_text(const Run& run, const Options& options, bool with_colour);

// Whether standard error takes colour: a terminal, and NO_COLOR not set.
bool takes_colour();

}  // namespace memrun
