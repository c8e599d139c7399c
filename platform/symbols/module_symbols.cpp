#include "platform/symbols/module_symbols.h"

#include <dwarf.h>

#include "platform/symbols/debug_file.h"
#include "platform/symbols/file_helpers.h"
#include "platform/symbols/function_names.h"
#include "platform/symbols/inline_levels.h"

namespace symbols {
namespace {

std::string absolute_path(Dwarf_Die& unit, const char* path) {
    if (path == nullptr) return {};
    if (path[0] == '/') return path;
    Dwarf_Attribute attribute;
    const char* folder = dwarf_formstring(dwarf_attr(&unit, DW_AT_comp_dir, &attribute));
    return folder == nullptr ? std::string(path) : std::string(folder) + '/' + path;
}

bool line_of_address(UNIT& unit, std::uint64_t address, PLACE& place) {
    Dwarf_Line* row = dwarf_getsrc_die(&unit.frame(), address);
    if (row == nullptr) return false;
    int line = 0;
    dwarf_lineno(row, &line);
    place.line = static_cast<std::uint32_t>(line);
    place.file = absolute_path(unit.frame(), dwarf_linesrc(row, nullptr, nullptr));
    return true;
}

std::uint64_t number_of(Dwarf_Die& entry, unsigned int name) {
    Dwarf_Attribute attribute;
    Dwarf_Word value = 0;
    return dwarf_formudata(dwarf_attr(&entry, name, &attribute), &value) == 0 ? value : 0;
}

// Where an inlined call stands in the function that it was put into.
PLACE place_of_call(UNIT& unit, Dwarf_Die& inlined) {
    PLACE place;
    place.line = static_cast<std::uint32_t>(number_of(inlined, DW_AT_call_line));
    Dwarf_Files* files = nullptr;
    std::size_t count = 0;
    if (dwarf_hasattr(&inlined, DW_AT_call_file) == 0 ||
        dwarf_getsrcfiles(&unit.files(), &files, &count) != 0)
        return place;
    const std::uint64_t number = number_of(inlined, DW_AT_call_file);
    if (number < count)
        place.file = absolute_path(unit.frame(), dwarf_filesrc(files, number, nullptr, nullptr));
    return place;
}

// The name of a function that is not inlined. The symbol table has the parameters also of functions whose
// entries carry no linker's name, as those within one unit do.
std::string outermost_name(Dwarf_Die& function, const TABLE_SYMBOL* symbol) {
    const bool is_mangled = symbol != nullptr && std::string_view(symbol->name).starts_with("_Z");
    return is_mangled && linkage_name_of(function) == nullptr ? demangled(symbol->name)
                                                              : function_name(function);
}

// Adds the levels that the debug information knows, innermost first; each inlined call gives the place of
// the next level outwards.
void add_levels(UNIT& unit, std::uint64_t address, PLACE innermost, const TABLE_SYMBOL* symbol,
                std::vector<FRAME>& frames) {
    Dwarf_Die* function = unit.find_function(address);
    if (function == nullptr) return;
    std::vector<Dwarf_Die> levels = inline_levels(*function, address);
    PLACE place = std::move(innermost);
    for (; !levels.empty(); levels.pop_back()) {
        Dwarf_Die& level = levels.back();
        std::string name = levels.size() == 1 ? outermost_name(level, symbol) : function_name(level);
        frames.push_back({std::move(place.file), std::move(name), place.line, {}});
        place = place_of_call(unit, level);
    }
}

}  // namespace

MODULE_SYMBOLS::MODULE_SYMBOLS(const std::string& path, const std::string& build_id, DETAIL detail)
    : file(ELF_FILE::open(path)) {
    if (file != nullptr && !build_id.empty() && file->build_id() != build_id) file.reset();
    if (detail == DETAIL::ALL) find_debug_information(path, build_id);
    if (file != nullptr) {
        table.add(file->elf());
        mini_symbols = MINI_SYMBOLS::find(file->elf());
    }
    if (mini_symbols != nullptr) table.add(mini_symbols->elf());
    if (debug_file != nullptr) table.add(debug_file->elf());
    table.finish();
    described = debug_file != nullptr ? debug_file.get() : file.get();
    if (detail == DETAIL::ALL && described != nullptr && described->has_units())
        units = std::make_unique<UNIT_INDEX>(described->dwarf(), *described);
}

void MODULE_SYMBOLS::find_debug_information(const std::string& path, const std::string& build_id) {
    if (file == nullptr) {
        // The module's own file is gone or replaced; a debug file of its build is as good.
        debug_file = open_by_build_id(build_id);
    } else if (!file->has_units()) {
        debug_file = find_debug_file(*file);
    }
    const bool is_described = debug_file != nullptr || (file != nullptr && file->has_units());
    if (is_described || build_id.empty() || file_helpers.fetch_debug_file == nullptr) return;
    const std::string fetched = file_helpers.fetch_debug_file(build_id, path);
    if (!fetched.empty()) debug_file = ELF_FILE::open(fetched);
    if (debug_file != nullptr && debug_file->build_id() != build_id) debug_file.reset();
}

std::uint64_t MODULE_SYMBOLS::instruction(const CODE_ADDRESS& address) const {
    const bool is_start = is_function_start(address.in_file) && !address.is_behind_call;
    return is_start ? address.in_file : address.in_file - 1;
}

std::vector<FRAME> MODULE_SYMBOLS::find_frames(std::uint64_t address) {
    std::vector<FRAME> frames;
    PLACE place;
    const TABLE_SYMBOL* symbol = table.find(address);
    UNIT* unit = find_unit(address);
    if (unit != nullptr) {
        line_of_address(*unit, address, place);
        add_levels(*unit, address, place, symbol, frames);
    }
    if (!frames.empty() || (place.file.empty() && symbol == nullptr)) return frames;
    // No entry of a function: hand-written code, or a file without debug information.
    std::string name = symbol == nullptr ? std::string() : demangled(symbol->name);
    FRAME& frame = frames.emplace_back(FRAME{std::move(place.file), std::move(name), place.line, {}});
    if (frame.file.empty()) frame.offset = address - symbol->begin;
    return frames;
}

bool MODULE_SYMBOLS::find_place(std::uint64_t address, PLACE& place) {
    UNIT* unit = find_unit(address);
    return unit != nullptr && line_of_address(*unit, address, place);
}

bool MODULE_SYMBOLS::find_symbol(std::uint64_t address, SYMBOL& symbol) {
    const TABLE_SYMBOL* found = table.find(address);
    if (found == nullptr) return false;
    symbol = {found->name, found->begin};
    return true;
}

}  // namespace symbols
