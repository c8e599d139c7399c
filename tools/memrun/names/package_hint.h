// What to install for code that has no names.
#pragma once

#include <string>
#include <vector>

namespace memrun::names {

// The packages of the system that own the files, each once; a file that none owns is left out. Empty where
// the system's packages are not dpkg's.
std::vector<std::string> packages_of(const std::vector<std::string>& paths);

}  // namespace memrun::names
