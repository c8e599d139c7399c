// Debug files from debuginfod servers, which the user's DEBUGINFOD_URLS names.
#pragma once

#include <functional>
#include <string>

namespace memrun::names {

// Before the first fetch: `on_progress` is called while a file is on its way, several times a second.
void prepare_fetching(std::function<void()> on_progress);

// The path of the debug file of that build in the client's own cache; empty when no server has it, or none
// brought it within a minute. Tells the terminal, if standard error is one, what is on its way for the
// module.
std::string fetch_debug_file(const std::string& build_id, const std::string& module_path);

}  // namespace memrun::names
