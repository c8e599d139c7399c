// The names of code: from what was named for any process of the launcher, else from the process that names it
// for this one, else from the module's own files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mem/base/tracking_word.h"
#include "platform/symbols/name_table.h"

// The value of the configuration key mem_profile_with_best_names: a function that only a symbol table knows
// is named with the distance behind its start, and code that nothing knows by its module and its place there
// ("function+0x1c", "module+0x1234").
extern MEM_PLAIN_WORD<bool> mem_tbb_best_names;

// Whether the system would give the memory that naming may take. Costs nothing where another process names.
bool mem_has_room_for_naming();

// The module that holds the program counter. Takes mem_tbb_symbolizer_lock by itself.
const symbols::MODULE* mem_find_module(std::uint64_t pc);

// The names of captured addresses. Asking for many at once costs less.
class MEM_CODE_NAMES {
  public:
    // Each address with the module in which it lay, null for none. It may allocate, takes
    // mem_tbb_symbolizer_lock by itself, never waits for the loader, and may wait for another process: no
    // lock of the tracker may be held.
    MEM_CODE_NAMES(std::vector<std::uint64_t> addresses, std::vector<const symbols::MODULE*> of_addresses);

    // Of the address with that number: its levels, innermost first. Texts are whole, and stay until the next
    // level is asked for.
    std::size_t level_count(std::size_t number) const;
    symbols::LEVEL level(std::size_t number, std::size_t level);

  private:
    // Where the levels of an address are: in the table, or among the answers by their number, plus 1.
    struct NAMED {
        symbols::NAME_TABLE_READER::FOUND known;
        std::size_t answer = 0;
    };
    class QUESTIONS;
    std::vector<std::size_t> look_up();
    void name_inside(const std::vector<std::size_t>& numbers);
    std::size_t known_levels(const NAMED& code) const;
    std::string_view with_distance(std::string_view name, std::uint64_t distance);

    std::vector<std::uint64_t> pcs;
    std::vector<const symbols::MODULE*> modules;
    std::vector<NAMED> named;
    std::vector<std::vector<symbols::FRAME>> answers;
    std::string completed;
};
