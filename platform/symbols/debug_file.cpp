#include "platform/symbols/debug_file.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace symbols {
namespace {

using std::filesystem::path;

constexpr std::array<std::uint32_t, 256> make_crc_table() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t rest = byte;
        for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ ((rest & 1) != 0 ? 0xedb88320U : 0U);
        table[byte] = rest;
    }
    return table;
}

// The checksum that a debug link carries of its file.
std::uint32_t file_checksum(const path& file) {
    static constexpr auto table = make_crc_table();
    std::ifstream input(file, std::ios::binary);
    std::uint32_t crc = ~0U;
    std::vector<char> block(65536);
    while (input.read(block.data(), static_cast<std::streamsize>(block.size())), input.gcount() > 0) {
        for (std::streamsize i = 0; i < input.gcount(); ++i)
            crc = (crc >> 8) ^ table[(crc ^ static_cast<unsigned char>(block[i])) & 0xff];
    }
    return ~crc;
}

// The folder as the module's path names it and as it really is: debug packages use the one or the other.
std::set<path> folders_of(const path& module) {
    std::error_code error;
    std::set<path> folders{module.parent_path()};
    const path real = std::filesystem::canonical(module, error);
    if (!error) folders.insert(real.parent_path());
    return folders;
}

bool belongs_to(const ELF_FILE& debug, const ELF_FILE& file, const DEBUG_LINK& link) {
    const std::string id = debug.build_id();
    if (!id.empty() && !file.build_id().empty()) return id == file.build_id();
    return file_checksum(debug.path()) == link.checksum;
}

std::unique_ptr<ELF_FILE> find_by_link(const ELF_FILE& file) {
    const DEBUG_LINK link = file.debug_link();
    if (link.file.empty()) return nullptr;
    const path global = "/usr/lib/debug";
    for (const path& folder : folders_of(file.path())) {
        for (const path& place : {folder, folder / ".debug", global / folder.relative_path()}) {
            auto debug = ELF_FILE::open(place / link.file);
            if (debug != nullptr && debug->has_units() && belongs_to(*debug, file, link)) return debug;
        }
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<ELF_FILE> find_debug_file(const ELF_FILE& file) {
    auto debug = open_by_build_id(file.build_id());
    return debug != nullptr ? std::move(debug) : find_by_link(file);
}

}  // namespace symbols
