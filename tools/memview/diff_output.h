#pragma once

#include <ostream>
#include <string>

#include "tools/memview/diff.h"
#include "tools/memview/terminal.h"

namespace memview {

// Aligned tables of the greatest changes.
void print_diff(const Diff& diff, const Options& options, const Terminal& terminal, std::ostream& out);

void write_diff_json(const Diff& diff, std::ostream& out);
std::string diff_page(const Diff& diff);

}  // namespace memview
