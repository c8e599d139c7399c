#include "platform/dbghelp.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/symbol_services.h"

namespace {

// Copies as much as fits into size characters, terminator included.
std::uint32_t copy_text(char* target, std::size_t size, const std::string& text) {
    if (size == 0) return 0;
    const std::size_t length = std::min(text.size(), size - 1);
    std::memcpy(target, text.data(), length);
    target[length] = '\0';
    return static_cast<std::uint32_t>(length);
}

bool fail(std::uint64_t address) {
    const bool is_listed = symbols::find_module(address, symbols::LISTING::KNOWN) != nullptr;
    SetLastError(is_listed ? ERROR_INVALID_ADDRESS : ERROR_MOD_NOT_FOUND);
    return false;
}

}  // namespace

bool SymGetModuleInfo64(HANDLE, std::uint64_t address, IMAGEHLP_MODULE64* module) {
    const symbols::MODULE* found = symbols::find_module(address, symbols::LISTING::KNOWN);
    if (found == nullptr) return fail(address);
    module->BaseOfImage = found->begin;
    module->ImageSize = static_cast<std::uint32_t>(found->end - found->begin);
    copy_text(module->ModuleName, sizeof module->ModuleName, found->name);
    copy_text(module->ImageName, sizeof module->ImageName, found->path);
    return true;
}

bool SymGetLineFromAddr64(HANDLE, std::uint64_t address, std::uint32_t* displacement, IMAGEHLP_LINE64* line) {
    static std::string& file = *new std::string;  // never destroyed, as the caller may read it to the end
    symbols::PLACE place;
    if (!symbols::find_place(address, place)) return fail(address);
    file = std::move(place.file);
    line->FileName = file.data();
    line->LineNumber = place.line;
    line->Address = address;
    *displacement = 0;
    return true;
}

bool SymFromAddr(HANDLE, std::uint64_t address, std::uint64_t* displacement, SYMBOL_INFO* symbol) {
    symbols::SYMBOL found;
    if (!symbols::find_symbol(address, found)) return fail(address);
    symbol->Address = found.begin;
    symbol->NameLen = static_cast<std::uint32_t>(found.name.size());
    copy_text(symbol->Name, symbol->MaxNameLen, found.name);
    if (displacement != nullptr) *displacement = address - found.begin;
    return true;
}

bool SymRefreshModuleList(HANDLE) {
    symbols::refresh_modules();
    return true;
}

std::uint32_t UnDecorateSymbolName(const char* name, char* output, std::uint32_t size, std::uint32_t) {
    return copy_text(output, size, symbols::readable_name(name));
}

void* dbghelp_entry(const char* name) {
    if (std::strcmp(name, "SymRefreshModuleList") == 0) return reinterpret_cast<void*>(&SymRefreshModuleList);
    if (std::strcmp(name, "SymFromAddr") == 0) return reinterpret_cast<void*>(&SymFromAddr);
    return nullptr;
}
