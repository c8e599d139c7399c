// The names of the frames that call paths are made of.
#pragma once

#include <vector>

#include "mem/paths/region_report.h"

// Of frames of mem_tbb_call_paths: whole texts, where those of a call site are cut to their fields, and the
// same verdicts. May wait for another process: with no lock of the tracker held but by the shut-down.
void mem_name_path_frames(const std::vector<MEM_PATH_FRAME>& frames, const MEM_PATH_LEVEL_TAKER& take);
