// Why a run ended as it did, and why its reports hold little or nothing.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/figures.h"
#include "tools/memrun/notes.h"
#include "tools/memrun/options.h"
#include "tools/memrun/run.h"

namespace memrun {

// "ended with status 1 after 0.4 s", "died of SIGSEGV (Segmentation fault) after 2 s", with the failed
// allocation when the program seems to have run out of memory.
std::string describe_ending(const Ending& ending, const std::vector<ProcessNote>& notes);

// Empty when the reports are worth reading; else the reason, with what to try, as a sentence.
std::string explain_emptiness(const Ending& ending, const std::vector<ProcessNote>& notes,
                              const Figures& figures, const Options& options);

}  // namespace memrun
