#pragma once

// Reads the report of call paths.

#include "tools/reports/model.h"
#include "tools/reports/problems.h"

namespace memview {

// Rows stand upon each other, so that anything wrong gives up the whole file: throws ReportError.
Paths read_paths(const std::string& path, Names& names);

}  // namespace memview
