// What is left of processes that ended without reports of their own.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/control/followed.h"
#include "tools/memrun/control/path_figures.h"
#include "tools/memrun/notes.h"

namespace memrun {

struct Aftermath {
    bool any_report = false;  // call paths were written for a process, up to its last event
    control::Held held;       // what the launched program held then; without sites when it is not known
};

// Writes the call paths of each process that is gone and has left no reports into `output`; reports that such
// a process had begun to write go, since readers would take them for whole.
Aftermath write_last_words(const control::Followed& followed, const std::vector<ProcessNote>& notes,
                           int launched_pid, const std::string& output);

}  // namespace memrun
