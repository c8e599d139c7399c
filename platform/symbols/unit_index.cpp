#include "platform/symbols/unit_index.h"

#include <dwarf.h>

#include <filesystem>
#include <utility>

namespace symbols {
namespace {

const char* text_of(Dwarf_Die& unit, unsigned int name) {
    Dwarf_Attribute attribute;
    const char* text = dwarf_formstring(dwarf_attr(&unit, name, &attribute));
    return text != nullptr ? text : "";
}

// libdw opens the file of a split unit by itself, and would wait at a pipe for ever.
bool split_file_may_be_opened(Dwarf_Die& unit, const ELF_FILE& code) {
    namespace fs = std::filesystem;
    std::string name = text_of(unit, DW_AT_dwo_name);
    if (name.empty()) name = text_of(unit, DW_AT_GNU_dwo_name);
    for (const fs::path& folder :
         {fs::path(code.path()).parent_path(), fs::path(text_of(unit, DW_AT_comp_dir))}) {
        std::error_code error;
        const fs::file_type type = fs::status(folder / name, error).type();
        if (type != fs::file_type::regular && type != fs::file_type::not_found) return false;
    }
    return true;
}

// The split unit of a skeleton; null when it has none that can be had.
Dwarf_Die split_unit_of(Dwarf_Die& skeleton, const ELF_FILE& code) {
    Dwarf_Die split{};
    if (split_file_may_be_opened(skeleton, code))
        dwarf_cu_info(skeleton.cu, nullptr, nullptr, nullptr, &split, nullptr, nullptr, nullptr);
    return split;
}

// Calls visit(begin, end) for each range of the entry.
template <class VISIT>
void for_each_range(Dwarf_Die& entry, VISIT visit) {
    Dwarf_Addr base = 0;
    Dwarf_Addr begin = 0;
    Dwarf_Addr end = 0;
    for (std::ptrdiff_t at = 0; (at = dwarf_ranges(&entry, at, &base, &begin, &end)) > 0;) {
        if (begin < end) visit(begin, end);
    }
}

// Entries of these kinds can have functions below them.
bool can_hold_functions(int tag) {
    switch (tag) {
        case DW_TAG_namespace:
        case DW_TAG_module:
        case DW_TAG_structure_type:
        case DW_TAG_class_type:
        case DW_TAG_union_type:
        case DW_TAG_interface_type:
        case DW_TAG_subprogram:
        case DW_TAG_lexical_block:
            return true;
        default:
            return false;
    }
}

}  // namespace

Dwarf_Die* UNIT::find_function(std::uint64_t address) {
    if (!is_indexed) {
        is_indexed = true;
        index_functions(contents());
        functions.finish();
    }
    return functions.find(address);
}

void UNIT::unpack() {
    if (package == nullptr) return;
    const PACKAGE_UNIT unit = std::exchange(package, nullptr)->open(id, frame_die);
    if (unit.contents.addr == nullptr) return;
    contents_die = unit.contents;
    files_die = unit.files.addr != nullptr ? unit.files : frame_die;
}

void UNIT::index_functions(Dwarf_Die scope) {
    Dwarf_Die entry;
    for (int more = dwarf_child(&scope, &entry); more == 0; more = dwarf_siblingof(&entry, &entry)) {
        const int tag = dwarf_tag(&entry);
        if (tag == DW_TAG_subprogram)
            for_each_range(entry,
                           [&](Dwarf_Addr begin, Dwarf_Addr end) { functions.add(begin, end, entry); });
        if (can_hold_functions(tag) && dwarf_haschildren(&entry) == 1) index_functions(entry);
    }
}

UNIT_INDEX::UNIT_INDEX(Dwarf* dwarf, const ELF_FILE& code) {
    Dwarf_CU* unit = nullptr;
    Dwarf_CU* next = nullptr;
    Dwarf_Die frame;
    std::uint8_t type = 0;
    for (; dwarf_get_units(dwarf, unit, &next, nullptr, &type, &frame, nullptr) == 0; unit = next) {
        const Dwarf_Die split = type == DW_UT_skeleton ? split_unit_of(frame, code) : Dwarf_Die{};
        UNIT& added = units.emplace_back(frame, split.addr != nullptr ? split : frame);
        if (type == DW_UT_skeleton && split.addr == nullptr) find_in_package(next, code, added);
        for_each_range(frame, [&](Dwarf_Addr begin, Dwarf_Addr end) {
            if (code.holds_code_at(begin)) ranges.add(begin, end, &added);
        });
    }
    ranges.finish();
}

void UNIT_INDEX::find_in_package(Dwarf_CU* skeleton, const ELF_FILE& code, UNIT& unit) {
    std::uint64_t id = 0;
    dwarf_cu_info(skeleton, nullptr, nullptr, nullptr, nullptr, &id, nullptr, nullptr);
    if (!has_looked_for_package) package = PACKAGE_FILE::find(code);
    has_looked_for_package = true;
    if (package != nullptr && package->has(id))
        unit.find_contents_in(*package, id);
    else
        lacks_units = true;
}

UNIT* UNIT_INDEX::find(std::uint64_t address) {
    UNIT** unit = ranges.find(address);
    return unit == nullptr ? nullptr : *unit;
}

}  // namespace symbols
