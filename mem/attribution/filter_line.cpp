#include "mem/attribution/filter_line.h"

#include <sstream>
#include <string_view>

namespace {

MEM_FILTER_COMMAND command_of(std::string_view word) {
    if (word == "filter_module") return MEM_FILTER_COMMAND::module;
    if (word == "filter_file_basename") return MEM_FILTER_COMMAND::file_basename;
    if (word == "filter_function") return MEM_FILTER_COMMAND::function;
    return MEM_FILTER_COMMAND::none;
}

MEM_FILTER_LINE faulty(MEM_FILTER_FAULT fault, const std::string& text = {}) {
    return {MEM_FILTER_COMMAND::none, fault, text};
}

}  // namespace

MEM_FILTER_LINE mem_parse_filter_line(const std::string& text) {
    std::istringstream words(text);
    std::string word;
    if (!(words >> word) || word == "#") return {};
    MEM_FILTER_LINE line{command_of(word), MEM_FILTER_FAULT::none, {}};
    if (line.command == MEM_FILTER_COMMAND::none) return faulty(MEM_FILTER_FAULT::unexpected_command, word);
    if (!(words >> line.argument) || line.argument == "#") return faulty(MEM_FILTER_FAULT::missing_argument);
    if (words >> word && word != "#") return faulty(MEM_FILTER_FAULT::text_behind_argument);
    return line;
}
