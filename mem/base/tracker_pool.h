// MEM_TRACKER_POOL: the private pool of the tables by address, away from the general heap.
#pragma once

#define TBB_PREVIEW_MEMORY_POOL 1
#include <oneapi/tbb/memory_pool.h>

#include <memory>

using MEM_TRACKER_POOL = tbb::memory_pool<std::allocator<char>>;
