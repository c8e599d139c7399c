// Readable names of functions.
#pragma once

#include <elfutils/libdw.h>

#include <string>

namespace symbols {

// The readable form of a linker's name: qualified, with parameters, without return type and without the
// marks of a compiler's clones. What is no mangled name comes back as it is, less those marks.
std::string demangled(const char* linkage_name);

// The linker's name that the entry of a function carries, also through its declaration; null when none.
const char* linkage_name_of(Dwarf_Die& function);

// The readable name of a function's entry, of an inlined call's as well; empty when it has none.
std::string function_name(Dwarf_Die& function);

}  // namespace symbols
