#include "mem/bins/bin_tag_shards.h"

MEM_BIN_TAG_SHARDS* mem_bin_tag_shards = nullptr;
