// The end of a tracked process: its reports, in the launcher's folder.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// Starts the allocation log in the output folder, under a name of this process's own.
void start_log(const Orders& orders);

// Writes the reports and the last lines of the note. `how` is "exit" or the number of a signal. The program's
// current directory is what it was before and after; while other threads run they keep theirs throughout.
void write_reports(const Orders& orders, const char* how);

}  // namespace memrun::agent
