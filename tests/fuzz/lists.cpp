#include <sstream>

#include "mem/attribution/filter_line.h"
#include "tests/fuzz/targets.h"
#include "tools/memview/suppressions.h"

namespace fuzz {

namespace {

void take(Bytes bytes) {
    const std::string text = text_of(bytes);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const MEM_FILTER_LINE filter = mem_parse_filter_line(line);
        const bool has_command = filter.command != MEM_FILTER_COMMAND::none;
        require(!has_command || !filter.argument.empty(), "a filter has an argument");
        memview::matches_pattern(line, text.substr(0, 200));
    }
    try {
        memview::Suppressions list = memview::Suppressions::read(MemoryFile(bytes).path());
        list.covers(text);
        list.unused();
    } catch (const memview::ReportError&) {
    }
}

std::vector<std::string> seeds() {
    return {"# known\nleak:^operator new*\nleak:lib*.so$\n\nleak:a*b*c\n",
            "filter_module libc\nfilter_file_basename alloc.h # ours\n#\nfilter_function std::\n"};
}

}  // namespace

const Target lists = {"lists", take, seeds};

}  // namespace fuzz
