// Writes the manual page and the completion of ktl_memctl.
#include <CLI/CLI.hpp>

#include "tools/common/cli_doc.h"
#include "tools/memctl/options.h"

int main(int argc, char** argv) {
    CLI::App app;
    memctl::Options options;
    memctl::declare_options(app, options);
    const cli_doc::Page page = {
        KTL_MEM_VERSION,
        "ask a program that runs under the memory tracker",
        {"[OPTIONS] DIR ORDER [NAME]"},
        {
            {"NOTES",
             "Talks to the ktl_memrun that writes to the folder, which passes orders on to every program "
             "that it "
             "tracks. status and paths do not touch the programs. All other orders are carried out by the "
             "first "
             "thread that allocates or frees; a program that does neither meanwhile cannot answer, unless "
             "--interrupt is given.\n\n"
             "Reports that are ordered cost the run at most a hundredth of its time, beside two seconds in "
             "all; an order "
             "for more waits."},
            {"EXIT STATUS",
             "0 when the order was carried out, 1 when it was not, 2 for a bad command line or when no "
             "launcher is "
             "there."},
            {"EXAMPLES",
             "    ktl_memctl reports status\n"
             "    ktl_memctl reports mark before; sleep 3600; ktl_memctl reports mark after\n"
             "    ktl_memview diff reports/marks/before reports/marks/after"},
        }};
    return cli_doc::generate(app, page, argc, argv);
}
