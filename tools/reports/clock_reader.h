#pragma once

// Reads the clock report: when the process began, and when each sample was taken.

#include <string>

#include "tools/reports/model.h"

namespace memview {

// Throws ReportError when the head is wrong; bad rows and a missing end go to `problems`.
SampleClock read_clock(const std::string& path, Problems& problems);

}  // namespace memview
