// The end of a run whose processes fork, the last of which may live longer than the first.
#pragma once

#include <string>

#include "tools/memrun/control/followed.h"

namespace memrun {

// Has this process inherit the children of those that end, so that it learns how long they live.
void adopt_orphans();

// Waits until none of the tracked processes is left, beginning behind the end of the launched one. SIGINT,
// SIGTERM, SIGHUP and SIGQUIT have this process leave the others, after a second in which they may follow
// the signal themselves. `program` is the path of the executable.
void wait_for_last_process(const control::Followed& followed, int launched_pid, const std::string& program,
                           bool is_quiet);

}  // namespace memrun
