// The state of a run, for who asks.
#pragma once

#include "tools/memrun/control/desk.h"
#include "tools/memrun/control/followed.h"

namespace memrun::control {

// Without touching the processes: their latest figures, which are at most a moment older than their latest
// event.
Answer status_of(const Processes& processes, const Desk& desk, const std::string& output);

}  // namespace memrun::control
