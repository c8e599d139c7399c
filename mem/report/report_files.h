// The files of the shut-down: their names and their order.
#pragma once

#include <string>

// prefix, the executable string, ".log"; relative, so that the file lands in the current directory. Without
// an executable string there is no name: an internal error.
std::string mem_report_file_name(const char* prefix);

// Writes every file that the report flags and the word ask for. The caller holds the gate.
void mem_write_report_files();
