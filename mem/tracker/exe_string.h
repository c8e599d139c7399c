// The middle word of every report file's name.
#pragma once

#include <string>

// Null before the tracker's start and after its end.
extern std::string* mem_tbb_exe_string;
void mem_create_exe_string();
