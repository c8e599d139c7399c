// What bounds the memory of a process from outside: the cgroups that it is in, first and second version, and
// its own limit of address space. Each call reads a few small files. Safe on any thread; nothing is allocated
// and no file stays open. `process` is a process id; 0 is the calling process.
#pragma once

#include <cstdint>
#include <string_view>

inline constexpr std::uint64_t no_memory_limit = ~std::uint64_t{0};

// The cgroup that will be full first: of those around the process the one with the least room below its
// limit.
struct CGROUP_MEMORY {
    std::uint64_t limit = no_memory_limit;  // bytes
    std::uint64_t usage = 0;                // bytes, of all processes in it and below
    std::uint64_t oom_kills = 0;            // processes in it that the kernel has ended for their memory
    char folder[512] = {};                  // where its files lie
};
// False when no cgroup around the process has a limit that the process may read.
bool read_cgroup_memory(std::int32_t process, CGROUP_MEMORY& out);

// RLIMIT_AS in bytes, or no_memory_limit.
std::uint64_t address_space_limit(std::int32_t process);

// Where the memory cgroup of a process lies, out of the text of /proc/PID/cgroup: the path behind the line of
// the first version's memory controller, else of the second version. Empty when there is neither.
struct CGROUP_PLACE {
    std::string_view path;
    bool is_first_version = false;
};
CGROUP_PLACE find_memory_cgroup(std::string_view cgroup_text);

// The group at that place and all around it, up to the folder `root` where the files of their hierarchy lie;
// false as above.
bool read_cgroups(const char* root, const CGROUP_PLACE& place, CGROUP_MEMORY& out);
