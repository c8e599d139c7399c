#include "platform/symbols/loaded_image.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "platform/startup_modules.h"
#include "platform/symbols/own_memory.h"

namespace symbols {
namespace {

constexpr std::size_t padded(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

// The build-id within the notes of one segment; nothing when it is not among them.
std::string_view build_id_in_notes(const std::vector<char>& notes) {
    std::size_t at = 0;
    while (at + sizeof(Elf64_Nhdr) <= notes.size()) {
        Elf64_Nhdr header;
        std::memcpy(&header, notes.data() + at, sizeof header);
        const std::size_t name = at + sizeof header;
        const std::size_t content = name + padded(header.n_namesz);
        if (content > notes.size() || header.n_descsz > notes.size() - content) break;
        if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 &&
            std::memcmp(notes.data() + name, "GNU", 4) == 0)
            return {notes.data() + content, header.n_descsz};
        at = content + padded(header.n_descsz);
    }
    return {};
}

// What lies at the start of an image, which mostly is all that there is to read.
class IMAGE_HEAD {
  public:
    explicit IMAGE_HEAD(std::uint64_t image_begin)
        : begin(image_begin), is_read(read_own_memory(begin, bytes.data(), bytes.size())) {}

    bool read(std::uint64_t address, void* target, std::size_t size) const {
        const std::uint64_t at = address - begin;
        if (!is_read || at > bytes.size() || size > bytes.size() - at)
            return read_own_memory(address, target, size);
        std::memcpy(target, bytes.data() + at, size);
        return true;
    }

  private:
    std::uint64_t begin;
    std::array<char, 4096> bytes;  // a page is there as a whole, or not at all
    bool is_read;
};

// Takes the build-id by the program headers of the image, whose file header lies at its start.
void take_build_id(LOADED_IMAGE& image) {
    const IMAGE_HEAD head(image.begin);
    Elf64_Ehdr file;
    if (!head.read(image.begin, &file, sizeof file) || std::memcmp(file.e_ident, ELFMAG, SELFMAG) != 0 ||
        file.e_phentsize != sizeof(Elf64_Phdr))
        return;
    std::vector<Elf64_Phdr> segments(file.e_phnum);
    if (!head.read(image.begin + file.e_phoff, segments.data(), segments.size() * sizeof(Elf64_Phdr))) return;
    for (const Elf64_Phdr& segment : segments) {
        if (segment.p_type != PT_NOTE || segment.p_memsz > 65536) continue;
        std::vector<char> notes(segment.p_memsz);
        if (!head.read(image.bias + segment.p_vaddr, notes.data(), notes.size())) continue;
        const std::string_view id = build_id_in_notes(notes);
        if (id.empty()) continue;
        image.build_id = id;
        image.build_id_at =
            image.bias + segment.p_vaddr + static_cast<std::uint64_t>(id.data() - notes.data());
        return;
    }
}

struct MAPPING {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    bool executable = false;
    std::string_view path;
};

// Calls visit for each line of the process's memory map, until it returns false.
void for_each_mapping(const std::function<bool(const MAPPING&)>& visit) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        MAPPING mapping;
        char permissions[5] = {};
        int path_at = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx %4s %*s %*s %*s %n", &mapping.begin, &mapping.end, permissions,
                        &path_at) != 3)
            continue;
        mapping.executable = permissions[2] == 'x';
        mapping.path = std::string_view(line).substr(path_at);
        if (!visit(mapping)) return;
    }
}

}  // namespace

std::optional<LOADED_IMAGE> loaded_image_at(std::uint64_t address) {
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) return std::nullopt;
    LOADED_IMAGE image;
    image.begin = reinterpret_cast<std::uint64_t>(found.dlfo_map_start);
    image.end = reinterpret_cast<std::uint64_t>(found.dlfo_map_end);
    // Another thread may unload the image between these lines, so that even the loader's record is read
    // with care; its first members are fixed by the debugger's interface.
    link_map record;
    if (!read_own_memory(reinterpret_cast<std::uint64_t>(found.dlfo_link_map), &record, sizeof record))
        return std::nullopt;
    image.bias = record.l_addr;
    image.loader_name = read_own_text(reinterpret_cast<std::uint64_t>(record.l_name));
    image.record_at = reinterpret_cast<std::uint64_t>(found.dlfo_link_map);
    image.name_at = reinterpret_cast<std::uint64_t>(record.l_name);
    take_build_id(image);
    return image;
}

bool still_holds(const LOADED_IMAGE& image, std::uint64_t address) {
    if (const STARTUP_MODULE* module = startup_module_at(address)) return module->begin == image.begin;
    dl_find_object found;
    if (image.build_id.empty() || _dl_find_object(reinterpret_cast<void*>(address), &found) != 0)
        return false;
    if (reinterpret_cast<std::uint64_t>(found.dlfo_map_start) != image.begin ||
        reinterpret_cast<std::uint64_t>(found.dlfo_map_end) != image.end ||
        reinterpret_cast<std::uint64_t>(found.dlfo_link_map) != image.record_at)
        return false;
    const std::size_t name_size = image.loader_name.size() + 1;
    const std::string& id = image.build_id;
    constexpr std::size_t head_size = offsetof(link_map, l_ld);
    std::array<char, 640> now;  // no more: the stack is the program's
    const std::array<OWN_PIECE, 3> pieces = {
        {{image.record_at, head_size}, {image.name_at, name_size}, {image.build_id_at, id.size()}}};
    if (head_size + name_size + id.size() > now.size() || !read_own_pieces(pieces, now.data())) return false;
    link_map record{};
    std::memcpy(&record, now.data(), head_size);
    return record.l_addr == image.bias && reinterpret_cast<std::uint64_t>(record.l_name) == image.name_at &&
           std::memcmp(now.data() + head_size, image.loader_name.c_str(), name_size) == 0 &&
           std::memcmp(now.data() + head_size + name_size, id.data(), id.size()) == 0;
}

std::string mapped_file_at(std::uint64_t address) {
    std::string path;
    for_each_mapping([&](const MAPPING& mapping) {
        if (address < mapping.begin || address >= mapping.end) return true;
        if (mapping.path.starts_with('/')) path = mapping.path;
        return false;
    });
    return path;
}

void for_each_code_mapping(const std::function<void(std::uint64_t)>& visit) {
    for_each_mapping([&](const MAPPING& mapping) {
        if (mapping.executable) visit(mapping.begin);
        return true;
    });
}

}  // namespace symbols
