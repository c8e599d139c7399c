// Processes by handle. A handle is a process id; 0 names no process.
#pragma once

#include <cstdint>

using HANDLE = std::uint64_t;

// A handle that names the calling process, also after a fork. Never 0, needs no closing; makes no system
// call.
HANDLE GetCurrentProcess();

// The numbers of the calling process and of its parent.
std::int32_t process_id();
std::int32_t parent_process_id();

// Ends this process at once with that exit code (its low eight bits): no exit action runs and no stream is
// flushed. Any other process is left alone: false, with the error EPERM. Safe in a signal handler.
bool TerminateProcess(HANDLE process, std::uint32_t exit_code);
