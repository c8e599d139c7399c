// Writes the manual page and the shell completion of ktl_memview; part of the build, not installed.

#include <CLI/CLI.hpp>

#include "tools/memview/options.h"

int main(int argc, char** argv) {
    memview::Options options;
    return cli_doc::generate(*memview::make_app(options), memview::manual_page(), argc, argv);
}
