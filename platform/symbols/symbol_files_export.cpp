#include <elfutils/libdw.h>
#include <libelf.h>

#include "ktl_mem/export.h"
#include "platform/symbols/function_names.h"
#include "platform/symbols/module_symbols.h"
#include "platform/symbols/symbol_files.h"

extern "C" KTL_MEM_API const symbols::SYMBOL_FILES* ktl_mem_symbol_files() {
    static const symbols::SYMBOL_FILES files = {
        [](const std::string& path,
           const std::string& build_id) -> std::shared_ptr<symbols::CODE_DESCRIPTION> {
            return std::make_shared<symbols::MODULE_SYMBOLS>(path, build_id);
        },
        symbols::demangled,
        {reinterpret_cast<const void*>(&elf_errno), reinterpret_cast<const void*>(&dwarf_errno)}};
    return &files;
}
