// All that is known about the code of one module. Addresses are those of its file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/symbol_services.h"
#include "platform/symbols/elf_file.h"
#include "platform/symbols/symbol_table.h"
#include "platform/symbols/unit_index.h"

namespace symbols {

class MODULE_SYMBOLS {
  public:
    // Reads the file, and its separate debug file where it has none of its own information. A file whose
    // build-id differs from the given one is another build and is not used; empty stands for any.
    MODULE_SYMBOLS(const std::string& path, const std::string& build_id);

    bool is_function_start(std::uint64_t address) const { return table.is_function_start(address); }

    // The functions below have the meaning of those in symbol_services.h, but for the instruction at the
    // address.
    std::vector<FRAME> find_frames(std::uint64_t address);
    bool find_place(std::uint64_t address, PLACE& place);
    bool find_symbol(std::uint64_t address, SYMBOL& symbol);

  private:
    UNIT* find_unit(std::uint64_t address) { return units == nullptr ? nullptr : units->find(address); }

    std::unique_ptr<ELF_FILE> file;
    std::unique_ptr<ELF_FILE> debug_file;
    SYMBOL_TABLE table;
    std::unique_ptr<UNIT_INDEX> units;
};

}  // namespace symbols
