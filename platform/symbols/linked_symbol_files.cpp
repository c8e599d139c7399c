// In a program that has the readers linked in.
#include "platform/symbols/symbol_files.h"

namespace symbols {

const SYMBOL_FILES* open_symbol_files() {
    return ktl_mem_symbol_files();
}

}  // namespace symbols
