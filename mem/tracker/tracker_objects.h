// Everything that lives from the tracker's start to its end, made and deleted by one list.
#pragma once

#include "mem/base/tracker_pool.h"

extern MEM_TRACKER_POOL* mem_tracker_pool;

void mem_make_tracker_objects();
// In the other order, with what came into being on the way. No other thread may be there.
void mem_delete_tracker_objects();
