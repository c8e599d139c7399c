// The tracker's start.
#pragma once

#include "ktl_mem/tracking.h"

// Builds the tables, reads the settings and attaches the hooks when the word is not empty. The first call
// does it all; a call meanwhile on another thread waits for it, and every later one returns at once.
void mem_tbb_tracker_start(MEM_TRACKING_GRANULARITY starting_word);
