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

    // Where the loader's record, its name and the build-id were read.
    std::uint64_t record_at = 0;
    std::uint64_t name_at = 0;
    std::uint64_t build_id_at = 0;

    bool operator==(const LOADED_IMAGE& other) const {
        return begin == other.begin && end == other.end && bias == other.bias &&
               loader_name == other.loader_name && build_id == other.build_id;
    }
};

// The image that holds the address now.
std::optional<LOADED_IMAGE> loaded_image_at(std::uint64_t address);

// Whether the image that was found before is, beyond doubt, what holds the address now. Costs little stack,
// and one system call unless it is there from the start of the process. An image without a build-id or with
// a long path leaves doubt.
bool still_holds(const LOADED_IMAGE& image, std::uint64_t address);

// The file that is mapped at the address; empty when there is none.
std::string mapped_file_at(std::uint64_t address);

// Calls visit with the first address of each mapping that holds code.
void for_each_code_mapping(const std::function<void(std::uint64_t)>& visit);

}  // namespace symbols
