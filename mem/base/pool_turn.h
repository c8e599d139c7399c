// One thread at a time asks the pool's library for memory or gives it back, and none while the process forks.
//
// That library has locks of its own that no fork handler renews, and takes them again at the exit of every
// process: a child that was forked while another thread held one would hang there. Tables ask seldom, when
// they grow, so that the turn costs nothing that can be measured.
#pragma once

#include "mem/base/spin_lock.h"

extern constinit MEM_SPIN_LOCK mem_pool_turn;

// Has every fork wait for the turn from now on.
void mem_hold_pool_turn_at_forks();
