// The files of the shut-down: their names and their order.
#pragma once

#include <mutex>
#include <string>

// Held by whoever writes all reports, before the gate.
extern constinit std::mutex mem_report_mutex;

// The path of a report: relative, so that the file lands in the current directory, unless another folder is
// set. One thread writes reports at a time.
std::string mem_report_path(const std::string& file_name);
void mem_set_report_folder(const std::string& folder);  // empty: the current directory

// The path of mem_tbb_KIND.WORD.log, where the word is the executable string. Without one there is no name:
// an internal error.
std::string mem_report_file_name(const char* kind);

// Writes every file that the report flags and the word ask for. The caller holds the gate.
void mem_write_report_files();
