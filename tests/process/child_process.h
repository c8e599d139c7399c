// Starts processes in empty folders of their own, and tells how they end.
#pragma once

#include <gmock/gmock.h>

#include <map>
#include <string>

inline const std::string track_all = "VELDRIN_MEM_PROFILE_ALL=1 ";
inline const std::string with_allocator = "LD_PRELOAD=" TCMALLOC_MINIMAL " ";
inline const std::string module_path = BUILT "/module.so";

struct ENDING {
    std::string how;  // "exit 1" or "signal 11"; "signal 14" after a minute
    std::string output, error;
    std::map<std::string, std::string> files;  // what it left in its folder, by name

    // Whether the report of call sites is complete and contains the text.
    bool has_call_site(const std::string& text) const;
    // Expects each report of another run, whole.
    void expect_reports_of(const ENDING& model) const;
};

// The command is a shell's line, and finds the programs that are built beside the tests. The environment is
// words of the form NAME=value.
ENDING run(const std::string& command, const std::string& environment = {});

// A run, and regular expressions for the whole of what it says.
struct CASE {
    std::string command, environment = {}, output = {}, how = "exit 0", error = {};
};
ENDING expect(const CASE& expected);
