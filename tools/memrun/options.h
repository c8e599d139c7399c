// The command line of ktl_memrun.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace memrun {

struct Options {
    std::uint32_t tracked = 0;  // bits (ktl_mem/tracking.h)
    std::uint32_t refused = 0;  // those that the command line says no to
    bool mappings = false;

    bool tracks(std::uint32_t bits) const { return (tracked & bits) == bits; }

    std::string output;  // empty: a folder named after program and process
    std::string name;    // empty: the program's
    bool force = false;
    bool follow_children = false;
    bool follow_forks = false;
    bool quiet = false;

    std::uint64_t sample_period = 0;    // 0: the tracker's default
    std::uint64_t peak_step = 1 << 20;  // bytes
    std::optional<int> ignore_depth;    // absent: the tracker's default
    std::string filters;                // empty: none
    bool unknown_lines = true;
    bool name_cache = true;
    bool debuginfod = false;

    double checkpoint_every_s = 0;  // 0: none
    std::string on_scarcity;        // a command for the shell; empty: none

    std::optional<unsigned> fill_new;
    std::optional<unsigned> fill_freed;
    bool log = false;

    std::vector<std::string> command;  // the program and its arguments
};

// Declares every option on `app`, to be stored in `options`, which must outlive it.
void declare_options(CLI::App& app, Options& options);

// What parsing leaves to do: takes the command from the parsed application and sets the default switches.
// Throws CLI::ParseError for a command line that makes no sense.
void complete_options(const CLI::App& app, Options& options);

}  // namespace memrun
