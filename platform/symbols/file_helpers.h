// Help in reading modules that takes libraries which no program should have to load, and a network. The
// library leaves it out; the launcher's namer sets it before it reads the first file.
#pragma once

#include <string>

namespace symbols {

struct FILE_HELPERS {
    // The path of the debug file of that build, fetched from elsewhere for the module of that path; empty
    // when there is none.
    std::string (*fetch_debug_file)(const std::string& build_id, const std::string& module_path) = nullptr;
};

inline FILE_HELPERS file_helpers;

}  // namespace symbols
