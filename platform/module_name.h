// The name under which a loaded module is known everywhere: in look-ups by name, in reports, in filters.
#pragma once

#include <string_view>

// The base name of a module's path: the directory is left out; of a shared object ("NAME.so", "NAME.so.1.2")
// also "lib" in front and everything from ".so" on; of any other file its extension. So "libtbb.so.12" is
// "tbb" and "tool.bin" is "tool". The result is a part of `path`. Allocates nothing; safe in a hook.
std::string_view module_base_name(std::string_view path);
