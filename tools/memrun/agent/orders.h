// What the launcher ordered for this process, and the environment that the program is to see.
#pragma once

#include <sys/types.h>

#include <climits>
#include <string_view>

namespace memrun::agent {

// Kept in plain arrays: programs overwrite the memory of their environment, and nothing here may allocate.
struct Orders {
    bool given = false;       // a launcher is there
    bool is_starter = false;  // this process only starts the program that is to be tracked, as `env` does
    bool has_heir = false;    // a program that takes this one's place by exec is tracked under the same word
    bool is_heir = false;     // this one took the place of a tracked one
    bool follow = false;
    bool forks = false;
    bool log = false;
    bool mappings = false;
    pid_t owner = 0;              // this process; a forked child has the same orders and must not act on them
    char dir[PATH_MAX] = {};      // output folder, absolute
    char name[NAME_MAX] = {};     // middle word of the launched program's report files
    char word[NAME_MAX] = {};     // the same of this process
    char program[PATH_MAX] = {};  // path of the executable
};

// Reads the launcher's variables of this process.
Orders read_orders();

// Those of a forked child that is tracked: it gets a word of its own.
void take_over_orders(Orders& orders);

// The launcher's own variables and those that it governs, which the program does not see.
bool is_launchers(std::string_view entry);

// Gives the program the environment that it would have without the launcher; a process whose children are
// followed keeps it, but for the word on which program was asked for. Allocates nothing.
void restore_environment(bool follow);

}  // namespace memrun::agent
