// The modules that were built with profile-guided optimisation, and their listing when the library ends.
#pragma once

#include "mem/base/tracking_word.h"

// Whether the key "debug_msg" was on when the library was loaded; what it says later doesn't matter here.
extern MEM_PLAIN_WORD<bool> mem_debug_msg_at_start;

// The library's exit action: one line for each pair, when debug messages were on at start and any module
// registered. Straight to standard output, whatever the IPC mode.
void mem_list_pgo_modules();
