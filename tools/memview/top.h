#pragma once

// The live screen of a run that goes on.

#include <ostream>
#include <string>

namespace memview {

// Until the run ends or the user leaves: a screen on a terminal, else a line to `out` each second.
void watch_run(const std::string& folder, std::ostream& out);

}  // namespace memview
