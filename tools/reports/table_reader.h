#pragma once

// Reads the reports that are one table.

#include "tools/reports/line_reader.h"
#include "tools/reports/model.h"
#include "tools/reports/report_kinds.h"

namespace memview {

// Throws ReportError when the head is wrong; bad rows and a missing end go to `problems`.
// `peak_index` is set when the title has one.
Table read_table(const std::string& path, const TableKind& kind, Names& names, Problems& problems,
                 std::optional<std::uint64_t>& peak_index);

}  // namespace memview
