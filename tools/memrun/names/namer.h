// The process that names code for the tracked ones. It is apart from the launcher, so that a debug file that
// is cut, changed or hostile while it is read ends nothing but one answer: the launcher starts another namer.
#pragma once

#include <string>

#include "platform/symbols/name_channel.h"
#include "platform/symbols/name_table.h"
#include "tools/memrun/names/work_table.h"

namespace memrun::names {

// What a namer has from its launcher.
struct NamerSeat {
    int launcher = -1;     // brings processes that come and go, as greetings; its end is the namer's
    int module_list = -1;  // takes a line for each module: its path
    symbols::NAME_BELL* bell = nullptr;
    symbols::NAME_TABLE* table = nullptr;  // takes all that is named; null for none
    WorkTable* work = nullptr;
    std::string cache_folder;  // empty: no cache
    bool fetches = false;      // asks debuginfod servers
};

// Serves until the launcher's end.
[[noreturn]] void run_namer(const NamerSeat& seat);

}  // namespace memrun::names
