#pragma once

// Reads the leak reports, whose rows are sentences, and the list of filtered frames.

#include "tools/reports/model.h"

namespace memview {

// A full leak report, a log of fast summaries, or one behind the other, as the shared file can hold them.
// Adds the table "leaks", the table "fast_leaks", or both.
void read_leaks(const std::string& path, Names& names, Problems& problems, std::vector<Table>& tables);

Table read_filtered(const std::string& path, Names& names, Problems& problems);

}  // namespace memview
