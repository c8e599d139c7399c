// Writes the manual page and the completion of ktl_memrun.
#include <CLI/CLI.hpp>

#include "tools/common/cli_doc.h"
#include "tools/memrun/options.h"

int main(int argc, char** argv) {
    CLI::App app;
    memrun::Options options;
    memrun::declare_options(app, options);
    const cli_doc::Page page = {
        KTL_MEM_VERSION,
        "run a program under the memory tracker",
        {"[OPTIONS] [--] PROGRAM [ARG...]"},
        {
            {"NOTES",
             "Runs an unmodified, dynamically linked program with the tracker and its allocator preloaded, "
             "and leaves "
             "a folder of reports that name the lines of source which hold its memory. Standard input, "
             "output and "
             "the terminal belong to the program; ktl_memrun speaks on standard error.\n\n"
             "Only the program itself is tracked, with what it puts in its place by exec, and what it starts "
             "sees the environment that it would have "
             "without "
             "ktl_memrun. With --follow-children each process that it starts is tracked, too; its files have "
             "the "
             "middle word NAME.PROGRAM.PID.\n\n"
             "SIGINT, SIGTERM and SIGHUP that the program does not handle end it after its reports are "
             "written. A "
             "second Ctrl-C ends it at once."},
            {"EXIT STATUS",
             "That of the program; a signal that ends the program ends ktl_memrun, too. 125 for a fault of "
             "ktl_memrun "
             "itself, 126 when the program cannot be run or not be tracked, 127 when it is not found."},
            {"ENVIRONMENT",
             "NO_COLOR: when set, the summary has no colour.\n\n"
             "LD_LIBRARY_PATH: searched for libtcmalloc_minimal, too.\n\n"
             "The tracker's own variables and keys that the options stand for are put aside while the "
             "tracker starts; "
             "the program sees them unchanged. mem_symbolizer is passed on."},
            {"EXAMPLES",
             "    ktl_memrun --all -o reports -- python3 script.py\n"
             "    ktl_memrun --follow-children -- g++ -c big.cpp\n"
             "    ktl_memrun --fill-new 0xCD --fill-freed 0xDD -- ./program"},
        }};
    return cli_doc::generate(app, page, argc, argv);
}
