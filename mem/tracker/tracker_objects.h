// What the tracker owns beside the tables that have rooms of their own.
#pragma once

#include "mem/base/tracker_pool.h"

extern MEM_TRACKER_POOL* mem_tracker_pool;
