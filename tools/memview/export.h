#pragma once

// The reports in forms that other tools read.

#include <ostream>
#include <string>

#include "tools/memview/model.h"
#include "tools/memview/options.h"

namespace memview {

// Writes in the form of options.format. Throws ReportError when the run lacks the table that the form is made
// of.
void export_reports(const Folder& folder, const Options& options, std::ostream& out);

// The forms, one by one.
void export_pprof(const Folder& folder, std::ostream& out);
void export_json(const Folder& folder, std::ostream& out);
void export_csv(const Folder& folder, const std::string& table_key, std::ostream& out);
void export_collapsed(const Folder& folder, const std::string& measure, std::ostream& out);
void export_speedscope(const Folder& folder, std::ostream& out);

// The run's call sites; throws ReportError when it has none.
const Table& sites_of(const Run& run);

// The frames of a call site from the outside in, as the viewers of stacks show them: module, file, function.
struct SiteFrames {
    std::string module;
    std::string file;
    std::string function;
    std::int64_t line;
};
SiteFrames frames_of(const Table& sites, std::size_t row, const Names& names);

}  // namespace memview
