#include "mem/library/allocator_report.h"

#include "ktl_mem/services.h"
#include "mem/base/messages.h"

MEM_ALLOCATOR_REPORT::MEM_ALLOCATOR_REPORT() : debug_msg(mem_cfg_is_on("debug_msg", false)) {}

MEM_ALLOCATOR_REPORT::~MEM_ALLOCATOR_REPORT() {
    if (!debug_msg) return;
    mem_debug_print_formatted("MEM: Native allocator:          '%s'", "TCMalloc");
    mem_debug_print_formatted("MEM: Allocator used by Veldrin: '%s'", "TCMalloc");
}
