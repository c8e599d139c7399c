// The search for a command in PATH.
#pragma once

#include <string>

namespace memrun {

// The executable file that execvp would run for `name`. Throws Failure with 127 when there is none and with
// 126 when what there is may not be executed.
std::string find_in_path(const std::string& name);

}  // namespace memrun
