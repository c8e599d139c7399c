#include "tools/memctl/options.h"

#include <CLI/CLI.hpp>

namespace memctl {

void declare_options(CLI::App& app, Options& options) {
    app.name("ktl_memctl");
    app.description("Asks a program that runs under ktl_memrun, and gives it orders");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "ktl_memctl: " + std::string(error.what()) + "\nTry 'ktl_memctl --help'.\n";
    });
    app.footer(
        "Orders: status, paths (the call paths as of now, into DIR/paths), checkpoint (all reports as of "
        "now, "
        "into\nDIR/checkpoint), mark NAME (the same into DIR/marks/NAME), start, stop (tracking on and off), "
        "reset (the\ntables begin anew).\n\n"
        "Exit status: 0 when it is done, 1 when it is not, 2 for a bad command line or when no launcher is "
        "there.\n\n"
        "Example: ktl_memctl reports mark before-import");
    app.set_version_flag("--version", "ktl_memctl " KTL_MEM_VERSION);
    app.add_option("DIR", options.folder, "Folder that the reports of the run go to")
        ->type_name("DIR")
        ->required();
    app.add_option("ORDER", options.order, "What is wanted")
        ->check(CLI::IsMember({"status", "paths", "checkpoint", "mark", "start", "stop", "reset"}))
        ->required();
    app.add_option("NAME", options.name, "Name of the mark");
    app.add_flag("--json", options.as_json, "Print the answer as JSON");
    app.add_option("--timeout", options.timeout_s, "How long to wait for the program; default 5")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 86400.0).description(""));
    app.add_flag(
        "--interrupt", options.interrupt,
        "Have a program answer that makes no allocation meanwhile; a system call in which it waits may "
        "return early");
}

void complete_options(const Options& options) {
    if (options.order == "mark" && options.name.empty()) throw CLI::RequiredError("NAME of the mark");
    if (options.order != "mark" && !options.name.empty()) throw CLI::ExtrasError({options.name});
}

}  // namespace memctl
