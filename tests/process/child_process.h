// Starts a host program in an empty folder of its own and tells how it ended.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

struct RUN {
    std::vector<std::string> command;      // the program's path first
    std::vector<std::string> environment;  // "NAME=value", beside what the test itself has
    std::uint64_t address_space = 0;       // limit in bytes, 0 for none
    bool standard_error_closed = false;
};

struct ENDING {
    int exit_code = -1;  // -1 when a signal ended it
    int signal = 0;
    bool timed_out = false;  // it was killed after a minute
    std::string output;
    std::string error;
    std::map<std::string, std::string> files;  // what it left in its folder, by name

    // One line for comparisons: "exit 1", "signal 11" or "hang".
    std::string how() const;
};

ENDING run_program(const RUN& run);

// LD_PRELOAD of the real allocator.
std::string with_allocator();
