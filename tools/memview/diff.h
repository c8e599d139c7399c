#pragma once

// What changed from one run to another.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/memview/model.h"
#include "tools/memview/options.h"

namespace memview {

// One pair of processes. Tables have the columns "before", "after" and "change", hold only the rows whose
// change is beyond the tolerance, and have the greatest change first.
struct ProcessDiff {
    std::string name;
    std::vector<Table> tables;       // "totals", "sites", "modules", "bins", "tags"
    std::vector<std::string> notes;  // what only one of the two runs has

    bool different() const;
};

struct Diff {
    std::shared_ptr<const Names> names;
    std::string measure;
    std::vector<ProcessDiff> processes;
    std::vector<std::string> notes;  // processes that only one folder has
    bool has_new_process = false;    // one of them is of the run after

    bool different() const;
};

// Pairs the processes by name, and those whose names differ by their process number alone in the order of
// that number; or the only ones of two folders whatever their names. The folders share their names. For the
// measure "peak" a run that held more at its end than at its recorded peak is taken at its end. Throws
// ReportError when the two have nothing in common.
std::unique_ptr<Diff> make_diff(const Folder& before, const Folder& after, const std::string& measure,
                                const Amount& tolerance);

}  // namespace memview
