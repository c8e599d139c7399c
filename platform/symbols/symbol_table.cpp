#include "platform/symbols/symbol_table.h"

#include <gelf.h>

#include <algorithm>
#include <cstring>
#include <tuple>

namespace symbols {
namespace {

Elf_Scn* find_table(Elf* elf, GElf_Word type, GElf_Shdr& header) {
    for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr;
         section = elf_nextscn(elf, section)) {
        if (gelf_getshdr(section, &header) != nullptr && header.sh_type == type) return section;
    }
    return nullptr;
}

// Global names before weak ones, weak before local; then names that do not begin with an underscore.
int rank_of(const GElf_Sym& symbol, const char* name) {
    const int binding = GELF_ST_BIND(symbol.st_info);
    const int strength = binding == STB_GLOBAL ? 2 : binding == STB_WEAK ? 1 : 0;
    return strength * 2 + (name[0] != '_' ? 1 : 0);
}

}  // namespace

void SYMBOL_TABLE::add(Elf* elf) {
    GElf_Shdr header;
    Elf_Scn* section = find_table(elf, SHT_SYMTAB, header);
    if (section == nullptr) section = find_table(elf, SHT_DYNSYM, header);
    Elf_Data* data = section == nullptr ? nullptr : elf_getdata(section, nullptr);
    if (data == nullptr || header.sh_entsize == 0) return;
    for (std::size_t i = 0; i < header.sh_size / header.sh_entsize; ++i) {
        GElf_Sym symbol;
        if (gelf_getsym(data, static_cast<int>(i), &symbol) == nullptr) break;
        const int type = GELF_ST_TYPE(symbol.st_info);
        if ((type != STT_FUNC && type != STT_GNU_IFUNC) || symbol.st_shndx == SHN_UNDEF) continue;
        const char* name = elf_strptr(elf, header.sh_link, symbol.st_name);
        if (name == nullptr || name[0] == '\0') continue;
        functions.push_back({symbol.st_value, symbol.st_size, name, rank_of(symbol, name)});
    }
}

void SYMBOL_TABLE::finish() {
    std::ranges::sort(functions, [](const TABLE_SYMBOL& a, const TABLE_SYMBOL& b) {
        if (std::tie(a.begin, b.rank) != std::tie(b.begin, a.rank))
            return std::tie(a.begin, b.rank) < std::tie(b.begin, a.rank);
        return std::strcmp(a.name, b.name) < 0;
    });
    const auto is_alias = [](const TABLE_SYMBOL& a, const TABLE_SYMBOL& b) { return a.begin == b.begin; };
    functions.erase(std::unique(functions.begin(), functions.end(), is_alias), functions.end());
    functions.shrink_to_fit();
}

const TABLE_SYMBOL* SYMBOL_TABLE::find(std::uint64_t address) const {
    const auto behind = std::ranges::upper_bound(functions, address, {}, &TABLE_SYMBOL::begin);
    if (behind == functions.begin()) return nullptr;
    const TABLE_SYMBOL& symbol = *(behind - 1);
    // Hand-written code often has no size: it reaches to the next function then.
    return symbol.size == 0 || address - symbol.begin < symbol.size ? &symbol : nullptr;
}

bool SYMBOL_TABLE::is_function_start(std::uint64_t address) const {
    return std::ranges::binary_search(functions, address, {}, &TABLE_SYMBOL::begin);
}

}  // namespace symbols
