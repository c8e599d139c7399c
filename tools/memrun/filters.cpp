#include "tools/memrun/filters.h"

#include <filesystem>
#include <fstream>

#include "mem/attribution/filter_line.h"
#include "tools/memrun/failure.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

const char* text_of(MEM_FILTER_FAULT fault) {
    switch (fault) {
        case MEM_FILTER_FAULT::unexpected_command:
            return "no filter command";
        case MEM_FILTER_FAULT::missing_argument:
            return "no argument";
        case MEM_FILTER_FAULT::text_behind_argument:
            return "text behind the argument";
        case MEM_FILTER_FAULT::none:
            break;
    }
    return "";
}

}  // namespace

void require_readable_filters(const std::string& path) {
    if (fs::is_directory(path) || !std::ifstream(path))
        throw Failure(status_launcher_fault, "the filters file '" + path + "' cannot be read");
}

std::string wrong_filter_lines(const std::string& path) {
    constexpr int most_named = 5;
    if (std::error_code error; !fs::is_regular_file(path, error)) return "";
    std::ifstream file(path);
    std::string named;
    int count = 0;
    std::string text;
    for (int number = 1; std::getline(file, text); ++number) {
        const MEM_FILTER_FAULT fault = mem_parse_filter_line(text).fault;
        if (fault == MEM_FILTER_FAULT::none || ++count > most_named) continue;
        named += (count > 1 ? ", " : "") + std::to_string(number) + " (" + text_of(fault) + ")";
    }
    if (count == 0) return "";
    return std::to_string(count) + (count == 1 ? " line of '" : " lines of '") + path +
           "' have no effect: " + named + (count > most_named ? ", ..." : "");
}

}  // namespace memrun
