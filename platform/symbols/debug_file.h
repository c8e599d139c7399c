// The separate file that holds a module's debug information, where the module was stripped of it.
#pragma once

#include <memory>

#include "platform/symbols/elf_file.h"

namespace symbols {

// Looks by build-id under /usr/lib/debug, then by the file's debug link beside it, in .debug beside it and
// under /usr/lib/debug. Null when there is none that belongs to this very build.
std::unique_ptr<ELF_FILE> find_debug_file(const ELF_FILE& file);

}  // namespace symbols
