#pragma once

// The resident memory on a terminal: a waterfall of its parts.

#include <ostream>

#include "tools/memview/terminal.h"
#include "tools/reports/model.h"

namespace memview {

void show_resident(const Resident& resident, const Terminal& terminal, std::ostream& out);

}  // namespace memview
