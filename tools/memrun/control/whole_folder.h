// Folders of reports that readers see as a whole or not at all.
#pragma once

#include <string>

namespace memrun::control {

// The name of a report in the folder that does not reach its end; empty when all do.
std::string cut_report(const std::string& folder);

// Give the finished folder its place; the reason when that fails, else empty. A new one is not put where one
// is already; a replaced one goes.
std::string put_new_folder(const std::string& finished, const std::string& target);
std::string replace_folder(const std::string& finished, const std::string& target);

}  // namespace memrun::control
