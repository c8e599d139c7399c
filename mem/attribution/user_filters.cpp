#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "ktl_mem/services.h"
#include "mem/attribution/filter_line.h"
#include "mem/attribution/frame_filters.h"
#include "mem/base/messages.h"

namespace {

void accept(std::vector<std::string>& list, const char* name, const std::string& argument) {
    list.push_back(argument);
    mem_msg_debug("accepting %s filter: \"%s\"", name, argument.c_str());
}

void tell(const MEM_FILTER_LINE& line, int number) {
    switch (line.fault) {
        case MEM_FILTER_FAULT::unexpected_command:
            mem_msg_debug("line %d: unexpected filter command: \"%s\"", number, line.argument.c_str());
            break;
        case MEM_FILTER_FAULT::missing_argument:
            mem_msg_debug("lineno %d: missing filter argument", number);
            break;
        case MEM_FILTER_FAULT::text_behind_argument:
            mem_msg_debug("lineno %d: unexpected text following filter argument", number);
            break;
        case MEM_FILTER_FAULT::none:
            break;
    }
}

enum class LINE { EMPTY, ACCEPTED, ERROR };

LINE read_line(const std::string& text, int number) {
    const MEM_FILTER_LINE line = mem_parse_filter_line(text);
    tell(line, number);
    switch (line.command) {
        case MEM_FILTER_COMMAND::module:
            accept(mem_filter_modules, "module", line.argument);
            break;
        case MEM_FILTER_COMMAND::file_basename:
            accept(mem_filter_file_basenames, "file basename", line.argument);
            break;
        case MEM_FILTER_COMMAND::function:
            accept(mem_filter_functions, "function", line.argument);
            break;
        case MEM_FILTER_COMMAND::none:
            return line.fault == MEM_FILTER_FAULT::none ? LINE::EMPTY : LINE::ERROR;
    }
    return LINE::ACCEPTED;
}

// Endless devices are no files of lines; a pipe of the shell is one.
bool may_be_read(const std::string& path) {
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    return type == std::filesystem::file_type::regular || type == std::filesystem::file_type::fifo;
}

// Reads on to the end of the line, and keeps no more of it than any filter needs.
class LINE_READER {
  public:
    explicit LINE_READER(std::istream& lines) : file(lines) {}
    // False at the end of the file.
    bool next() {
        file.getline(text.data(), std::ssize(text));
        too_long = file.fail() && file.gcount() == std::ssize(text) - 1;
        if (too_long) {
            file.clear();
            file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        }
        return too_long || !file.fail();
    }
    LINE judge(int number) const {
        if (!too_long) return read_line(text.data(), number);
        mem_msg_debug("line %d: longer than %d characters", number, static_cast<int>(text.size()) - 1);
        return LINE::ERROR;
    }

  private:
    std::istream& file;
    std::array<char, 4096> text;
    bool too_long = false;
};

const char* plural(int count) {
    return count == 1 ? "" : "s";
}

}  // namespace

void mem_read_user_defined_filters() {
    const std::string path = mem_cfg_get_value("mem_user_defined_filters_file");
    if (path.empty()) return;
    std::ifstream file;
    if (may_be_read(path)) file.open(path);
    if (!file.is_open()) {
        mem_msg_debug("error opending memory tracker user defined filters file \"%s\"", path.c_str());
        return;
    }
    mem_msg_debug("reading user defined filters from \"%s\"", path.c_str());
    int accepted = 0;
    int errors = 0;
    LINE_READER lines(file);
    for (int number = 1; lines.next(); ++number) {
        const LINE line = lines.judge(number);
        accepted += line == LINE::ACCEPTED ? 1 : 0;
        errors += line == LINE::ERROR ? 1 : 0;
    }
    mem_msg_debug("accepted %d user defined filter%s (%d error%s)", accepted, plural(accepted), errors,
                  plural(errors));
}
