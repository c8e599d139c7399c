#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "tools/common/cli_doc.h"

namespace cli_doc {
namespace {

bool write_file(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    if (!out) std::cerr << "cannot write " << path << "\n";
    return static_cast<bool>(out);
}

}  // namespace

int generate(const CLI::App& app, const Page& page, int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " FOLDER\n";
        return 2;
    }
    const std::string base = std::string(argv[1]) + "/" + app.get_name();
    const bool ok = write_file(base + ".1", man_page(app, page)) && write_file(base, bash_completion(app));
    return ok ? 0 : 1;
}

}  // namespace cli_doc
