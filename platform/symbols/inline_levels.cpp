#include "platform/symbols/inline_levels.h"

#include <dwarf.h>

namespace symbols {
namespace {

// Adds what is inlined directly or in blocks below scope, then goes on below that.
void add_levels(Dwarf_Die scope, std::uint64_t address, std::vector<Dwarf_Die>& levels) {
    Dwarf_Die entry;
    for (int more = dwarf_child(&scope, &entry); more == 0; more = dwarf_siblingof(&entry, &entry)) {
        const int tag = dwarf_tag(&entry);
        if ((tag != DW_TAG_inlined_subroutine && tag != DW_TAG_lexical_block) ||
            dwarf_haspc(&entry, address) != 1)
            continue;
        if (tag == DW_TAG_inlined_subroutine) levels.push_back(entry);
        add_levels(entry, address, levels);
        return;
    }
}

}  // namespace

std::vector<Dwarf_Die> inline_levels(const Dwarf_Die& function, std::uint64_t address) {
    std::vector<Dwarf_Die> levels{function};
    add_levels(function, address, levels);
    return levels;
}

}  // namespace symbols
