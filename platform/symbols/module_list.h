// The modules of this process from the first time each was seen. An entry stays when its module is
// unloaded, so that addresses captured before still have names.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/symbol_services.h"
#include "platform/symbols/loaded_image.h"
#include "platform/symbols/symbol_files.h"

namespace symbols {

class MODULE_ENTRY {
  public:
    // path: of its file, where it is known; else it is looked for.
    explicit MODULE_ENTRY(LOADED_IMAGE loaded, const std::string& path = {});

    const MODULE& module() const { return description; }
    const LOADED_IMAGE& image() const { return loaded_image; }
    // What its files say, which are read at the first call. Null without readers.
    std::shared_ptr<CODE_DESCRIPTION> symbols(const SYMBOL_FILES* files);
    // The same build of the same file: what is known of the one's symbols goes for the other.
    void share_symbols_of(const MODULE_ENTRY& other);

  private:
    LOADED_IMAGE loaded_image;
    MODULE description;
    std::shared_ptr<CODE_DESCRIPTION> known_symbols;
};

class MODULE_LIST {
  public:
    // The module that is known to hold the address, where that can be found out with little stack; null else.
    MODULE_ENTRY* find_unchanged(std::uint64_t address);
    // As find_module in symbol_services.h.
    MODULE_ENTRY* find(std::uint64_t address, LISTING listing);
    // As find_module in symbol_services.h.
    MODULE_ENTRY& of(const LOADED_IMAGE& image, const std::string& path);
    // That of a module of this list; null for another one.
    MODULE_ENTRY* of(const MODULE& module);
    void refresh();

  private:
    MODULE_ENTRY& add(const LOADED_IMAGE& image, const std::string& path);
    template <class CONDITION>
    MODULE_ENTRY* find_loaded(CONDITION is_wanted);

    std::vector<std::unique_ptr<MODULE_ENTRY>> entries;  // in the order in which they were seen
};

}  // namespace symbols
