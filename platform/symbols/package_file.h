// Split units in a package file (.dwp), which libdw does not read.
//
// The package is a table of all units with their parts of each section. For a unit that is asked for, its
// parts are put together into an ELF file of their own in memory, with the program's addresses beside them.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/symbols/elf_file.h"

namespace symbols {

// The entries of a split unit; their addr is null where there is none.
struct PACKAGE_UNIT {
    Dwarf_Die contents{};
    Dwarf_Die files{};  // of the table that call sites number their files by; else it is the skeleton's
};

class PACKAGE_FILE {
  public:
    // The package beside a file with skeletons; null when there is none.
    static std::unique_ptr<PACKAGE_FILE> find(const ELF_FILE& skeletons);
    ~PACKAGE_FILE();
    PACKAGE_FILE(const PACKAGE_FILE&) = delete;
    PACKAGE_FILE& operator=(const PACKAGE_FILE&) = delete;

    bool has(std::uint64_t unit_id) const { return rows.contains(unit_id); }
    PACKAGE_UNIT open(std::uint64_t unit_id, Dwarf_Die& skeleton);

  private:
    struct PART {
        std::uint32_t offset = 0;
        std::uint32_t size = 0;
    };
    using ROW = std::map<std::string, PART>;  // by the section's name, as ".debug_info"

    // A file in memory with one unit.
    struct OPENED {
        std::string image;
        Elf* elf = nullptr;
        Dwarf* dwarf = nullptr;
    };

    PACKAGE_FILE(std::unique_ptr<ELF_FILE> opened, const ELF_FILE& described);
    void read_index();
    std::string_view part_of(const ROW& row, const std::string& section) const;
    Dwarf_Die open_image(std::string image);

    std::unique_ptr<ELF_FILE> file;
    std::map<std::string, std::string_view> sections;  // of the package
    std::map<std::string, std::string_view> program;   // of the file with the skeletons
    std::map<std::uint64_t, ROW> rows;
    std::vector<std::unique_ptr<OPENED>> opened_units;
};

}  // namespace symbols
