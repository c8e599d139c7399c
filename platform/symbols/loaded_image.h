// What the loader has in memory at an address, found without its locks.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace symbols {

struct LOADED_IMAGE {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t bias = 0;   // address in memory less address in the file
    std::string loader_name;  // as the loader was asked for it; empty for the executable
    std::string build_id;     // raw bytes; empty when the image has none

    bool operator==(const LOADED_IMAGE&) const = default;
};

// The image that holds the address now.
std::optional<LOADED_IMAGE> loaded_image_at(std::uint64_t address);

// The file that is mapped at the address; empty when there is none.
std::string mapped_file_at(std::uint64_t address);

// Calls visit with the first address of each mapping that holds code.
void for_each_code_mapping(const std::function<void(std::uint64_t)>& visit);

}  // namespace symbols
