// The environment of the tracked program.
#pragma once

#include <string>
#include <vector>

#include "tools/memrun/libraries.h"
#include "tools/memrun/options.h"

namespace memrun {

// What the launched process needs to know beside the options.
struct Launch {
    std::string output;   // absolute
    std::string name;     // middle word of the file names
    std::string tracked;  // absolute path of the executable
    int pid = 0;
};

// `found`, the "NAME=VALUE"s of the launcher itself, as the tracker and its agent take them: what options
// decide is put aside in its place, and their settings follow at the end. Orders of another launcher, which
// follows this one, go.
std::vector<std::string> tracked_environment(const std::vector<std::string>& found, const Options& options,
                                             const Libraries& libraries, const Launch& launch);

}  // namespace memrun
