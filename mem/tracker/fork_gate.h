// The gate of the forks: where forked children are to be tracked, each event of the hooks enters as a mouse
// for as long as it takes, with all that it does outside of the tracker's gate. A fork enters as a cat, so
// that its child finds every table whole and nearly every lock free.
#pragma once

#include "mem/base/gate.h"

// Null unless the key "mem_track_forked_children" is on, so that events elsewhere pay nothing for it.
extern MEM_CATS_AND_MICE* mem_fork_gate;

// At the tracker's start, before its hooks are attached.
void mem_make_fork_gate();
