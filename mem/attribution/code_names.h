// The names of code: from the process that names it for this one, else from the module's own files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mem/base/tracking_word.h"
#include "platform/symbol_services.h"

struct MEM_NAMED_CODE {
    std::string module;                  // base name; empty when the address lies in no module
    std::vector<symbols::FRAME> levels;  // innermost first; texts are whole
};

// The value of the configuration key mem_profile_with_best_names: a function that only a symbol table knows
// is named with the distance behind its start, and code that nothing knows by its module and its place there
// ("function+0x1c", "module+0x1234").
extern MEM_PLAIN_WORD<bool> mem_tbb_best_names;

// Whether the system would give the memory that naming may take. Costs nothing where another process names.
bool mem_has_room_for_naming();

// Names captured addresses, in their order. Asking for many at once costs less. It may allocate, takes
// mem_tbb_symbolizer_lock by itself, never waits for the loader, and may wait for another process: no lock of
// the tracker may be held.
std::vector<MEM_NAMED_CODE> mem_name_code(const std::vector<std::uint64_t>& pcs);

// The same where it is known in which module each of the addresses lay, null for none.
std::vector<MEM_NAMED_CODE> mem_name_code(const std::vector<std::uint64_t>& pcs,
                                          const std::vector<const symbols::MODULE*>& modules);
