// Names the frames of call paths in the launcher, for processes that may be dead.
#pragma once

#include <string>
#include <vector>

#include "mem/paths/region_report.h"

namespace memrun::control {

// Reads the user's filters out of their file, if it is one; a pipe is the program's, who can read it once.
// Before the first frame is named.
void read_filters(const std::string& file);

// In the order of the frames, with at least one level for each. Asks the namer; where it does not answer,
// code is named by its module alone.
std::vector<std::vector<MEM_PATH_LEVEL>> name_frames(const MEM_PATH_REGION& region,
                                                     const std::vector<MEM_PATH_FRAME>& frames);

}  // namespace memrun::control
