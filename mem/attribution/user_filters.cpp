#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

#include "ktl_mem/services.h"
#include "mem/attribution/frame_filters.h"
#include "mem/base/messages.h"

namespace {

struct FILTER_COMMAND {
    std::string_view word;
    std::vector<std::string>* list;
    const char* name;  // as the messages call it
};

const FILTER_COMMAND* find_command(const std::string& word) {
    static const std::array<FILTER_COMMAND, 3> commands = {{
        {"filter_module", &mem_filter_modules, "module"},
        {"filter_file_basename", &mem_filter_file_basenames, "file basename"},
        {"filter_function", &mem_filter_functions, "function"},
    }};
    for (const FILTER_COMMAND& command : commands) {
        if (command.word == word) return &command;
    }
    return nullptr;
}

enum class LINE { EMPTY, ACCEPTED, ERROR };

LINE read_line(const std::string& text, int number) {
    std::istringstream words(text);
    std::string command_word;
    if (!(words >> command_word) || command_word == "#") return LINE::EMPTY;
    const FILTER_COMMAND* command = find_command(command_word);
    if (command == nullptr) {
        mem_msg_debug("line %d: unexpected filter command: \"%s\"", number, command_word.c_str());
        return LINE::ERROR;
    }
    std::string argument;
    if (!(words >> argument) || argument == "#") {
        mem_msg_debug("lineno %d: missing filter argument", number);
        return LINE::ERROR;
    }
    std::string more;
    if (words >> more && more != "#") {
        mem_msg_debug("lineno %d: unexpected text following filter argument", number);
        return LINE::ERROR;
    }
    command->list->push_back(argument);
    mem_msg_debug("accepting %s filter: \"%s\"", command->name, argument.c_str());
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
        file.getline(text.data(), text.size());
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
