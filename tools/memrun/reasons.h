// Why a run ended as it did, and what a reader of its figures has to know.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/figures.h"
#include "tools/memrun/finished_run.h"
#include "tools/memrun/options.h"

namespace memrun {

// "ended with status 1 after 0.4 s", "died of SIGSEGV (Segmentation fault) after 2 s", with the failed
// allocation when the program seems to have run out of memory.
std::string describe_ending(const Ending& ending, const std::vector<ProcessNote>& notes,
                            const control::LastLook& look);

// Why the reports hold little or nothing, and what they leave out; each a sentence, with what to try.
std::vector<std::string> remarks(const Run& run, const Figures& figures, const Options& options);

}  // namespace memrun
