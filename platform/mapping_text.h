// The texts of /proc that describe the mappings of a process, as pure functions over one line.
// Nothing allocates; texts point into the line.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// A line of /proc/PID/maps, which is also the first line of each mapping in /proc/PID/smaps.
struct MAPPING_LINE {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    bool is_accessible = false;  // it can be read, written or executed
    bool is_writable = false;
    bool is_executable = false;
    bool is_shared = false;
    std::uint64_t inode = 0;  // 0 where no file lies behind it
    std::string_view name;    // of the file, or in brackets what the kernel calls it; may be empty
};
std::optional<MAPPING_LINE> parse_mapping_line(std::string_view line);
