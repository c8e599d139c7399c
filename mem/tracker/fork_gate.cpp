#include "mem/tracker/fork_gate.h"

#include "ktl_mem/services.h"

MEM_CATS_AND_MICE* mem_fork_gate = nullptr;

void mem_make_fork_gate() {
    if (mem_cfg_is_on("mem_track_forked_children", false)) mem_fork_gate = new MEM_CATS_AND_MICE;
}
