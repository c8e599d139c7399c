// One ELF file with its debug information, mapped for as long as the object lives. No file descriptor
// stays open: the process may close or count its own.
#pragma once

#include <elfutils/libdw.h>
#include <gelf.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/symbols/decoded_sections.h"

namespace symbols {

struct DEBUG_LINK {
    std::string file;  // base name of the separate debug file; empty when there is no link
    std::uint32_t checksum = 0;
};

class ELF_FILE {
  public:
    // Null when the file is missing, unreadable or no ELF file.
    static std::unique_ptr<ELF_FILE> open(const std::string& path);
    ~ELF_FILE();
    ELF_FILE(const ELF_FILE&) = delete;
    ELF_FILE& operator=(const ELF_FILE&) = delete;

    const std::string& path() const { return file_path; }
    Elf* elf() const { return handle; }
    // Null when the file has no debug information.
    Dwarf* dwarf() const { return debug_info; }
    bool has_units() const;
    // No file that the debug information refers to is missing, split units apart.
    bool is_complete() const { return !lacks_shared_debug_file; }
    std::string build_id() const;  // raw bytes; empty when the file has none
    DEBUG_LINK debug_link() const;
    bool holds_code_at(std::uint64_t file_address) const;

  private:
    ELF_FILE(std::string path, Elf* elf) : file_path(std::move(path)), handle(elf) {}
    void decode_sections();
    void attach_shared_debug_file();

    std::string file_path;
    DECODED_IMAGE decoded_image;  // what the handle stands on where sections had to be decoded
    Elf* handle = nullptr;
    Dwarf* debug_info = nullptr;
    bool lacks_shared_debug_file = false;
    std::unique_ptr<ELF_FILE> shared_debug_file;  // what several debug files have in common (dwz)
};

// The file of that build under the system's folder of debug files; null when it is not installed.
std::unique_ptr<ELF_FILE> open_by_build_id(const std::string& build_id);

}  // namespace symbols
