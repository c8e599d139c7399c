#include "mem/paths/loads.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/modules.h"

namespace {

std::string path_of(const symbols::LOADED_IMAGE& image) {
    if (image.loader_name.starts_with('/')) return image.loader_name;
    return symbols::mapped_file_at(image.begin);
}

// A text that does not fit is left out: a part of it would name another file.
template <std::size_t size>
std::uint8_t copy_whole(auto(&field)[size], const std::string& text) {
    const bool fits = text.size() < size;
    if (fits) std::memcpy(field, text.data(), text.size());
    return fits ? static_cast<std::uint8_t>(text.size()) : 0;
}

void describe(MEM_PATH_LOAD& load, const symbols::LOADED_IMAGE& image) {
    load.begin = image.begin;
    load.end = image.end;
    load.bias = image.bias;
    load.build_id_size = copy_whole(load.build_id, image.build_id);
    copy_whole(load.path, path_of(image));
}

}  // namespace

std::uint16_t MEM_PATH_LOADS::find(std::uint64_t pc, std::uint16_t generation) {
    if (const std::uint16_t number = find_checked(pc, generation)) return number;
    const auto image = symbols::loaded_image_at(pc);
    return image ? enter(*image, generation) : 0;
}

std::uint16_t MEM_PATH_LOADS::find_checked(std::uint64_t pc, std::uint16_t generation) {
    const MEM_LOCK_SCOPE guard(lock);
    const auto at = std::ranges::find_if(known, [&](const KNOWN& load) {
        return load.generation == generation && pc >= load.image.begin && pc < load.image.end;
    });
    return static_cast<std::uint16_t>(at == known.end() ? 0 : at - known.begin() + 1);
}

std::uint16_t MEM_PATH_LOADS::enter(const symbols::LOADED_IMAGE& image, std::uint16_t generation) {
    MEM_PATH_LOAD described{};
    describe(described, image);
    const MEM_LOCK_SCOPE guard(lock);
    const auto at = std::ranges::find_if(known, [&](const KNOWN& load) { return load.image == image; });
    if (at != known.end()) {
        at->generation = generation;
        return static_cast<std::uint16_t>(at - known.begin() + 1);
    }
    const auto number = static_cast<std::uint16_t>(known.size() + 1);
    if (!memory.reserve_load(number)) return 0;
    known.push_back({image, generation});
    memory.region.load(number) = described;
    memory.region.header->loads.publish(number + 1);
    return number;
}

symbols::LOADED_IMAGE MEM_PATH_LOADS::image(std::uint16_t number) {
    const MEM_LOCK_SCOPE guard(lock);
    return known[number - 1U].image;
}
