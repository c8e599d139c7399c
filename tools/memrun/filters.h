// The user's file of filters, before the tracker reads it.
#pragma once

#include <string>

namespace memrun {

// Throws Failure when the file cannot be read.
void require_readable_filters(const std::string& path);

// A sentence about its lines that will have no effect, with the number of each; empty when there are none. A
// pipe is not looked into: it can be read only once.
std::string wrong_filter_lines(const std::string& path);

}  // namespace memrun
