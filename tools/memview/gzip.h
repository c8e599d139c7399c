#pragma once

#include <string>

namespace memview {

// The text as a gzip file.
std::string gzip(const std::string& text);

}  // namespace memview
