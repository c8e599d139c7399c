// What is known of a run when it is over.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/aftermath.h"
#include "tools/memrun/control/control.h"
#include "tools/memrun/notes.h"
#include "tools/memrun/run.h"
#include "tools/memrun/survivors.h"

namespace memrun {

struct Run {
    std::string program_name;
    std::string output;
    Ending ending;
    std::vector<ProcessNote> notes;
    std::vector<Survivor> survivors;
    std::vector<std::string> modules;  // paths of those whose code was named
    control::LastLook last_look;
    Aftermath aftermath;
};

}  // namespace memrun
