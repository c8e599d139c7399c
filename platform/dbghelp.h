// The symbol functions under the native system's names, over the services of symbol_services.h, whose rules
// on addresses, allocation and locking hold here too: the caller lets in one thread at a time. Structures
// have the native layout as far as it is used. The process handle is ignored: this process is meant.
#pragma once

#include <cstdint>

#include "platform/last_error.h"
#include "platform/process.h"

struct IMAGEHLP_MODULE64 {
    std::uint32_t SizeOfStruct;  // 1680, set by the caller
    std::uint64_t BaseOfImage;   // address
    std::uint32_t ImageSize;     // bytes
    std::uint32_t reserved_stamps[4];
    char ModuleName[32];  // base name, cut to 31 characters
    char ImageName[256];  // path, cut to 255 characters
    char reserved_rest[1356];
};
static_assert(sizeof(IMAGEHLP_MODULE64) == 1680);

struct IMAGEHLP_LINE64 {
    std::uint32_t SizeOfStruct;  // 40, set by the caller
    void* Key;                   // unused
    std::uint32_t LineNumber;
    char* FileName;         // valid until the next call of SymGetLineFromAddr64
    std::uint64_t Address;  // the address asked for
};
static_assert(sizeof(IMAGEHLP_LINE64) == 40);

struct SYMBOL_INFO {
    std::uint32_t SizeOfStruct;  // 88, set by the caller
    std::uint32_t TypeIndex;
    std::uint64_t Reserved[2];
    std::uint32_t Index;
    std::uint32_t Size;
    std::uint64_t ModBase;  // address of the module's image
    std::uint32_t Flags;
    std::uint64_t Value;
    std::uint64_t Address;  // where the function begins
    std::uint32_t Register;
    std::uint32_t Scope;
    std::uint32_t Tag;
    std::uint32_t NameLen;     // characters of the whole name, which may be more than fitted
    std::uint32_t MaxNameLen;  // room at Name in characters, terminator included; set by the caller
    char Name[1];              // the decorated name, terminated
};
static_assert(sizeof(SYMBOL_INFO) == 88);

inline constexpr std::uint32_t UNDNAME_NO_FUNCTION_RETURNS = 4;

// Each gives false and sets the last error when nothing is known: ERROR_MOD_NOT_FOUND when no listed module
// holds the address, else ERROR_INVALID_ADDRESS. The list is what SymRefreshModuleList found last.
bool SymGetModuleInfo64(HANDLE process, std::uint64_t address, IMAGEHLP_MODULE64* module);
bool SymGetLineFromAddr64(HANDLE process, std::uint64_t address, std::uint32_t* displacement,
                          IMAGEHLP_LINE64* line);
bool SymFromAddr(HANDLE process, std::uint64_t address, std::uint64_t* displacement, SYMBOL_INFO* symbol);

// Brings the list of loaded modules up to date. Always true.
bool SymRefreshModuleList(HANDLE process);

// Writes the readable form of a decorated name, cut to size - 1 characters and terminated. Functions have
// no return type whatever the flags say. Returns the number of characters; 0 for no room.
std::uint32_t UnDecorateSymbolName(const char* name, char* output, std::uint32_t size, std::uint32_t flags);

// The entry points that callers find by name: SymRefreshModuleList and SymFromAddr; null for other names.
void* dbghelp_entry(const char* name);
