#pragma once

// What changed from one run to another.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/memview/options.h"
#include "tools/memview/path_tree.h"
#include "tools/reports/model.h"

namespace memview {

// One pair of processes. Tables have the columns "before", "after" and "change", hold only the rows whose
// change is beyond the tolerance, and have the greatest change first.
struct ProcessDiff {
    std::string name;
    std::vector<Table> tables;       // "totals", "sites", "modules", "bins", "tags", "paths"
    std::vector<std::string> notes;  // what only one of the two runs has
    // Both, or none of them; they are those of the folders that were compared.
    const Paths* paths_before = nullptr;
    const Paths* paths_after = nullptr;

    bool different() const;
};

// The paths of both runs as one tree with the figures before and after, by function, since lines move.
PathTree compared_paths(const ProcessDiff& process, const std::string& measure, Names& names, TreeForm form);

struct Diff {
    std::shared_ptr<Names> names;
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
