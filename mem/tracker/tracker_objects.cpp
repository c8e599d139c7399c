#include "mem/tracker/tracker_objects.h"

MEM_TRACKER_POOL* mem_tracker_pool = nullptr;
