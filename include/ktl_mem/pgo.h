// The registry of code modules that were built with profile-guided optimisation.
#pragma once

#include "ktl_mem/export.h"

// Notes that `module` was last optimised for `scenario`. Both are copied and must not be null; a pair that is
// known already changes nothing. When the key "debug_msg" was on at the library's start, all pairs are listed
// on standard output at its end. Two threads must not register at once; not to be called in an allocator
// hook.
KTL_MEM_API void mem_register_dll_for_pgo(const char* module, const char* scenario);
