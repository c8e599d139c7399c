// The command line of ktl_memctl.
#pragma once

#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace memctl {

struct Options {
    std::string folder;  // output folder of the run
    std::string order;
    std::string name;  // of a mark
    bool as_json = false;
    double timeout_s = 5;
    bool interrupt = false;
};

// Declares every option on `app`, to be stored in `options`, which must outlive it.
void declare_options(CLI::App& app, Options& options);

// What parsing leaves to do. Throws CLI::ParseError for a command line that makes no sense.
void complete_options(const Options& options);

}  // namespace memctl
