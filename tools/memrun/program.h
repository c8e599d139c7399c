// Which file a command runs, and whether that can be tracked.
#pragma once

#include <string>
#include <vector>

namespace memrun {

struct Program {
    std::string path;     // the file to run, as found
    std::string tracked;  // the executable whose memory is of interest: the file, or a script's interpreter
};

// Finds the command's file as the shell would and looks whether the tracker can be loaded into it.
// Throws Failure: 127 when there is no such file, 126 with the reason when it cannot run or not be tracked.
Program find_program(const std::vector<std::string>& command);

// Whether what runs the file, itself or the interpreter of a script, can be tracked.
bool is_trackable(const std::string& path);

}  // namespace memrun
