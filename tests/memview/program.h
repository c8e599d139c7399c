#pragma once

// Runs a command line of the shell and keeps what came of it.

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/memview/reports.h"

namespace memview_test {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// In the scratch folder.
inline Outcome run(const Scratch& scratch, const std::string& command_line) {
    const std::string errors = scratch.path("stderr");
    FILE* pipe = ::popen(("cd " + scratch.path() + " && " + command_line + " 2>" + errors).c_str(), "r");
    Outcome outcome{-1, {}, {}};
    std::array<char, 4096> buffer{};
    for (std::size_t got = 0; (got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        outcome.out.append(buffer.data(), got);
    }
    outcome.status = WEXITSTATUS(::pclose(pipe));
    std::ifstream file(errors);
    outcome.err.assign(std::istreambuf_iterator<char>(file), {});
    return outcome;
}

}  // namespace memview_test
