#pragma once

// The reports in forms that other tools read.

#include <ostream>
#include <string>

#include "tools/memview/options.h"
#include "tools/memview/places.h"
#include "tools/reports/model.h"

namespace memview {

// Writes in the form of options.format. Throws ReportError, before anything is written, when the run lacks
// the table that the form is made of.
void export_reports(const Folder& folder, const Options& options, std::ostream& out);

// The forms, one by one.
void export_pprof(const Folder& folder, std::ostream& out);
void export_json(const Folder& folder, std::ostream& out);
void export_csv(const Folder& folder, const std::string& table_key, std::ostream& out);
void export_collapsed(const Folder& folder, const std::string& measure, std::ostream& out);
void export_speedscope(const Folder& folder, std::ostream& out);

// The run's call sites; throws ReportError when it has none.
const Table& sites_of(const Run& run);

// The frames of call sites as the viewers of stacks show them, from the outside in: module, file, function. A
// part that is not known bears a word that says so.
class SiteFrames {
  public:
    SiteFrames(const Table& sites, Names& names);
    Place operator[](std::size_t row) const;

  private:
    PlaceReader places_;
    const Cells& address_;
    std::int64_t unknown_;
    std::int64_t other_;
};

}  // namespace memview
