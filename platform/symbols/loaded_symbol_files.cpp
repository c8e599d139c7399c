// In the shared library, beside which the readers' library lies.
#include <dlfcn.h>

#include <string>

#include "platform/symbols/symbol_files.h"

namespace symbols {

const SYMBOL_FILES* open_symbol_files() {
    static const char here = 0;
    Dl_info own;
    if (dladdr(&here, &own) == 0) return nullptr;
    std::string path = own.dli_fname;
    path.resize(path.rfind('/') + 1);
    path += "libktl_mem_symbols.so";
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) return nullptr;
    const auto files =
        reinterpret_cast<decltype(&ktl_mem_symbol_files)>(dlsym(library, "ktl_mem_symbol_files"));
    return files == nullptr ? nullptr : files();
}

}  // namespace symbols
