// Processes of the program that are still there when it has ended: daemons that went to the background, and
// programs that were started and not waited for.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/notes.h"

namespace memrun {

struct Survivor {
    int pid = 0;
    std::string name;      // of the executable, without its folder
    bool is_fork = false;  // goes on in the executable of a tracked process, untracked
};

// Of the launched process `pid`: the children that the agents saw at the end of theirs, and all that still
// have the environment of its start, whoever their parent is by now.
std::vector<Survivor> find_survivors(int pid, const std::vector<ProcessNote>& notes);

}  // namespace memrun
