#pragma once

// Reads the report of the resident memory: its parts at each point.

#include <string>

#include "tools/reports/model.h"

namespace memview {

// Throws ReportError when the head is wrong; bad rows and a missing end go to `problems`. All full points are
// kept, and of the samples so many that they can be drawn: those with the highest resident size of their
// neighbours.
Resident read_resident(const std::string& path, Problems& problems);

}  // namespace memview
