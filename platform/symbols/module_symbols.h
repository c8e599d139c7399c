// The code of one module, as its file and its debug file describe it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/symbols/elf_file.h"
#include "platform/symbols/mini_symbols.h"
#include "platform/symbols/symbol_files.h"
#include "platform/symbols/symbol_table.h"
#include "platform/symbols/unit_index.h"

namespace symbols {

// How much is read of a module: all there is, or the symbol tables of its own file alone.
enum class DETAIL { ALL, FUNCTIONS };

class MODULE_SYMBOLS final : public CODE_DESCRIPTION {
  public:
    // Reads the file, and its separate debug file where it has none of its own information. A file whose
    // build-id differs from the given one is another build and is not used; empty stands for any.
    MODULE_SYMBOLS(const std::string& path, const std::string& build_id, DETAIL detail = DETAIL::ALL);

    bool is_unread() const override { return file == nullptr && debug_file == nullptr; }
    std::uint64_t instruction(const CODE_ADDRESS& address) const override;
    std::vector<FRAME> find_frames(std::uint64_t address) override;
    bool find_place(std::uint64_t address, PLACE& place) override;
    bool find_symbol(std::uint64_t address, SYMBOL& symbol) override;
    bool is_function_start(std::uint64_t address) const { return table.is_function_start(address); }

    // The names come from debug information of which nothing is missing.
    bool is_complete() const { return units != nullptr && units->is_complete() && described->is_complete(); }
    bool has_units() const { return units != nullptr; }
    bool has_functions() const { return !table.empty(); }

  private:
    void find_debug_information(const std::string& path, const std::string& build_id);
    UNIT* find_unit(std::uint64_t address) { return units == nullptr ? nullptr : units->find(address); }

    std::unique_ptr<ELF_FILE> file;
    std::unique_ptr<ELF_FILE> debug_file;
    std::unique_ptr<MINI_SYMBOLS> mini_symbols;
    const ELF_FILE* described = nullptr;  // the one of them that has the debug information
    SYMBOL_TABLE table;
    std::unique_ptr<UNIT_INDEX> units;
};

}  // namespace symbols
