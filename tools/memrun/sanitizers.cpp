#include "tools/memrun/sanitizers.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "platform/symbols/elf_file.h"

namespace memrun {

namespace {

// Each has a function of this name, in the program itself or wanted by it.
constexpr std::array<std::pair<std::string_view, const char*>, 5> beginnings = {{
    {"__asan_init", "AddressSanitizer"},
    {"__hwasan_init", "HWAddressSanitizer"},
    {"__lsan_init", "LeakSanitizer"},
    {"__msan_init", "MemorySanitizer"},
    {"__tsan_init", "ThreadSanitizer"},
}};

const char* begun_by(std::string_view symbol) {
    const auto* const found = std::ranges::find(beginnings, symbol, &decltype(beginnings)::value_type::first);
    return found == beginnings.end() ? nullptr : found->second;
}

const char* find_in_table(Elf* elf, Elf_Scn* section) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr || header.sh_entsize == 0) return nullptr;
    if (header.sh_type != SHT_SYMTAB && header.sh_type != SHT_DYNSYM) return nullptr;
    Elf_Data* const data = elf_getdata(section, nullptr);
    if (data == nullptr) return nullptr;
    for (int i = 0; i < static_cast<int>(header.sh_size / header.sh_entsize); ++i) {
        GElf_Sym symbol;
        if (gelf_getsym(data, i, &symbol) == nullptr) break;
        const char* const name = elf_strptr(elf, header.sh_link, symbol.st_name);
        if (const char* const found = name != nullptr ? begun_by(name) : nullptr) return found;
    }
    return nullptr;
}

}  // namespace

std::string sanitizer_of(const std::string& path) {
    const auto file = symbols::ELF_FILE::open(path);
    if (file == nullptr) return "";
    Elf* const elf = file->elf();
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf, section)) != nullptr;)
        if (const char* const found = find_in_table(elf, section)) return found;
    return "";
}

}  // namespace memrun
