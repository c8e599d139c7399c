// How near a run has come to the limits of its memory, seen from outside.
#pragma once

#include <cstdint>
#include <string>

#include "tools/memrun/control/followed.h"

namespace memrun::control {

struct MemoryRoom {
    std::string limit_name;   // "the cgroup's limit", ...; empty: no limit is known
    std::uint64_t limit = 0;  // bytes
    std::uint64_t used = 0;   // of it
    int percent = 0;          // the same, rounded down
};

// How many processes the kernel has ended for their memory, in a cgroup and on the machine.
std::uint64_t kills_in_cgroup(const std::string& folder);
std::uint64_t kills_on_machine();

// Where the files of the limited cgroup around a process lie; empty when there is none.
std::string limited_cgroup(pid_t pid);

// Resident bytes and size of a process; 0 when it is gone.
std::uint64_t resident_bytes(pid_t pid);
std::uint64_t address_space_bytes(pid_t pid);

// The limit that is used up most: of the cgroups around the processes, of the address space of each, and of
// the machine. A limit of which these processes hold less than a twentieth is none of theirs.
MemoryRoom tightest_room(const Processes& processes);

}  // namespace memrun::control
