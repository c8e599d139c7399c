// The folder that a run leaves behind.
#pragma once

#include <string>

#include "tools/memrun/options.h"

namespace memrun {

// Where the reports of this run go, absolute: as the options say, or named after program and process.
std::string output_path(const Options& options, const std::string& program_name, int pid);

// Keeps other launchers from a folder that was named for this run, made if need be, until it goes. Without a
// name there is nothing to claim: the folder is named after the process. Throws Failure when another launcher
// has it.
class FolderClaim {
  public:
    explicit FolderClaim(const std::string& folder);
    ~FolderClaim();
    FolderClaim(const FolderClaim&) = delete;
    FolderClaim& operator=(const FolderClaim&) = delete;

  private:
    int file_ = -1;
};

// Makes the folder with its parents and the notes' folder in it. Reports that lie there already are removed
// when `force` is set. Throws Failure when there are some and it is not, and when the folder cannot be
// written.
void prepare_output(const std::string& path, bool force);

// Takes back what prepare_output made, as far as it is still empty.
void discard_output(const std::string& path);

// Removes the checkpoint, which the reports of the end have overtaken.
void discard_checkpoint(const std::string& path);

// Notes the sizes of the reports that lie there (tools/common/size_note.h).
void note_sizes(const std::string& path);

// True for the name of a file that the tracker writes.
bool is_report_name(const std::string& file_name);

}  // namespace memrun
