// The whole exported interface.
#pragma once

#include "ktl_mem/chunk_alloc.h"
#include "ktl_mem/debug_patterns.h"
#include "ktl_mem/format.h"
#include "ktl_mem/initializer.h"
#include "ktl_mem/memory_manager.h"
#include "ktl_mem/out_of_memory.h"
#include "ktl_mem/pgo.h"
#include "ktl_mem/process_memory.h"
#include "ktl_mem/profile_bins.h"
#include "ktl_mem/queries.h"
#include "ktl_mem/reports.h"
#include "ktl_mem/resident.h"
#include "ktl_mem/services.h"
#include "ktl_mem/statistics.h"
#include "ktl_mem/timelines.h"
#include "ktl_mem/tracking.h"
