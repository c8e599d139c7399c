// The mappings of this process and how much of each lies in memory. Safe on any thread; nothing is allocated
// and no file stays open. Costs about a microsecond a mapping and three milliseconds a gigabyte where the
// kernel scans page tables (platform/resident_pages.h), else four and ten. Not in a signal handler.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/mapping_text.h"
#include "platform/resident_pages.h"

struct PROCESS_MAPPING : MAPPING_LINE {
    std::uint64_t resident = 0;  // bytes

    // No file lies behind it and the kernel has no name for it.
    bool is_anonymous() const { return inode == 0 && name.empty(); }
    bool has_file() const { return inode != 0; }
};

// Called for each mapping from low to high addresses; the name lives for the call.
class MAPPING_VISITOR {
  public:
    virtual void visit(const PROCESS_MAPPING& mapping) = 0;

  protected:
    ~MAPPING_VISITOR() = default;
};

// Room for what is being read, so that no caller needs a large stack. For one call at a time.
struct MAPPING_BUFFERS {
    char mappings[65536];
    union {
        PAGE_REGION regions[1024];
        char name[4096];
    };
    std::uint64_t stack_top[512];
};

// False when the system gives no such figures. A mapping that comes or goes meanwhile may be missing.
bool visit_process_mappings(MAPPING_VISITOR& visitor, MAPPING_BUFFERS& buffers);
// The same by the way that every kernel has.
bool visit_mappings_by_smaps(MAPPING_VISITOR& visitor, MAPPING_BUFFERS& buffers);

// Whether the address lies in a module, also in the memory behind its file that starts as zeros.
bool is_in_loaded_module(std::uint64_t address);

// Whether the memory that ends at this address is the stack that a thread was given by the C library: it
// keeps its record of the thread at the upper end. Memory that went away meanwhile is none.
bool is_top_of_thread_stack(std::uint64_t end, MAPPING_BUFFERS& buffers);
