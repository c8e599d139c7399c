// One line of the file of user-defined filters: a command, and the beginning of a name. Also linked into the
// launcher, which shows its user the lines that are wrong.
#pragma once

#include <string>

enum class MEM_FILTER_COMMAND { none, module, file_basename, function };
enum class MEM_FILTER_FAULT { none, unexpected_command, missing_argument, text_behind_argument };

struct MEM_FILTER_LINE {
    MEM_FILTER_COMMAND command = MEM_FILTER_COMMAND::none;  // none for an empty line and for a faulty one
    MEM_FILTER_FAULT fault = MEM_FILTER_FAULT::none;
    std::string argument;  // or the unexpected command
};

MEM_FILTER_LINE mem_parse_filter_line(const std::string& text);
