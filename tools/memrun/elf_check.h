// Whether the loader would put preloaded objects into an executable file.
#pragma once

#include <string>

namespace memrun {

bool is_elf(const std::string& path);

// Empty when it would, else the reason as the end of a sentence ("is statically linked, ...").
std::string why_not_trackable(const std::string& path);

}  // namespace memrun
