// Names the frames of call paths in the launcher, for processes that may be dead.
#pragma once

#include <string>
#include <vector>

#include "mem/paths/region_report.h"

namespace memrun::control {

// Reads the user's filters out of their file, if it is one; a pipe is the program's, who can read it once.
// Before the first frame is named.
void read_filters(const std::string& file);

// As MEM_PATH_NAMER. Asks the namer; where it does not answer, code is named by its module alone.
void name_frames(const MEM_PATH_REGION& region, const std::vector<MEM_PATH_FRAME>& frames,
                 const MEM_PATH_LEVEL_TAKER& take);

}  // namespace memrun::control
