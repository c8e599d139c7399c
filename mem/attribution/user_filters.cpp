#include <array>
#include <fstream>
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

const char* plural(int count) {
    return count == 1 ? "" : "s";
}

}  // namespace

void mem_read_user_defined_filters() {
    const std::string path = mem_cfg_get_value("mem_user_defined_filters_file");
    if (path.empty()) return;
    std::ifstream file(path);
    // A folder opens as well, but has nothing to read.
    if (!file || (file.peek(), file.bad())) {
        mem_msg_debug("error opending memory tracker user defined filters file \"%s\"", path.c_str());
        return;
    }
    mem_msg_debug("reading user defined filters from \"%s\"", path.c_str());
    file.clear();  // an empty file is at its end already
    int accepted = 0;
    int errors = 0;
    std::string text;
    for (int number = 1; std::getline(file, text); ++number) {
        const LINE line = read_line(text, number);
        accepted += line == LINE::ACCEPTED ? 1 : 0;
        errors += line == LINE::ERROR ? 1 : 0;
    }
    mem_msg_debug("accepted %d user defined filter%s (%d error%s)", accepted, plural(accepted), errors,
                  plural(errors));
}
