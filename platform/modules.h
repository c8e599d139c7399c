// Loaded modules of this process by name. Names are base names: the directory is left out, and for a
// shared object also "lib" in front and everything from the first ".so"; a ".dll" at the end of the asked
// name is left out too. Nothing is ever loaded. The calls take the loader's lock: they must not be made in
// an allocator hook or with a lock held. The one exception is "dbghelp" and its entries (dbghelp.h), which
// are part of this library: they are found without the loader.
#pragma once

#include <cstdint>
#include <string>

using HMODULE = void*;

// The module of that name, or null when the process does not hold it or the name is null.
HMODULE GetModuleHandleA(const char* name);

// The address of a symbol of that module; null when it has none or the module is null.
void* GetProcAddress(HMODULE module, const char* symbol);
void* thr_drl_find_function(HMODULE module, const char* symbol);

// The path of the executable (module null) into buffer of size characters, cut and terminated there.
// Returns the number of characters, 0 on failure. No other module is supported.
std::uint32_t GetModuleFileNameA(HMODULE module, char* buffer, std::uint32_t size);

// Where the executable can be read, also when its file was removed or renamed since the start.
std::string executable_file();
