#pragma once

// Finds the reports of a folder, keeps the processes apart and reads them all.

#include <memory>
#include <string>
#include <vector>

#include "tools/reports/model.h"

namespace memview {

// The processes of one folder with their files, not yet read, in the order of their names. A leak log that
// processes share belongs to the process when there is but one, and otherwise stands for itself. Throws
// ReportError when there is no folder or no report in it.
std::vector<Run> find_runs(const std::string& folder);

struct FolderRequest {
    std::vector<std::string> folders;
    std::string process;  // only the one with this middle word; empty for all
    bool keep_going = false;
};

// Adds to `names` those of the reports, so that folders that are compared can share theirs. Throws
// ReportError when there is nothing to read, and on anything wrong in a file unless keep_going is set.
std::unique_ptr<Folder> read_folders(const FolderRequest& request,
                                     std::shared_ptr<Names> names = std::make_shared<Names>());

}  // namespace memview
