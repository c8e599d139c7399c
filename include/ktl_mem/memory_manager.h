// The facade of the allocator: totals, its extension calls, and calls that are kept and give fixed answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "ktl_mem/export.h"

// Keeps no state: the answers are fixed. Safe anywhere.
class KTL_MEM_API MEM_SEGMENT {
  public:
    int get_id();                // always 1
    void check_memory_guards();  // does nothing, like what follows
    void dump(std::ofstream& stream);
    void dump(std::ofstream& stream, int level);
    void dump(const char* text);
    void dump(const char* text, int level);
};

class KTL_MEM_API MEM_MANAGER {
  public:
    // Bytes of tracked live blocks, now and at the highest. 0 while nothing is counted (statistics.h). Safe
    // in an allocator hook.
    static std::uint64_t current_total_memory();
    static std::uint64_t peak_total_memory();

    // Usable bytes of a block of the heap that serves malloc; 0 for null. A pointer that no allocation gave
    // is undefined behaviour. Safe in an allocator hook.
    static std::size_t msize(void* block);

    static void check_memory_guards();          // does nothing
    static MEM_SEGMENT* get_default_segment();  // the one segment; never null, lives as long as the process

  private:
    void initialize();
};

extern KTL_MEM_API MEM_MANAGER mem_manager;

// Always true, for any pointer, null too. Safe anywhere.
KTL_MEM_API bool mem_is_allocated(const void* block);

// Calls of the allocator tcmalloc_minimal. Each looks its entry up once, at its first call in the process; an
// allocator that is loaded later is not seen. The first call of each calls the loader: not in an allocator
// hook. Safe from any thread.
namespace MEM::MALLOC_EXTENSION {

// Stores the allocator's number of that name, in bytes, and returns 1; returns 0 for an unknown name and -1
// without the allocator, and then leaves *value alone. Neither argument may be null.
KTL_MEM_API int get_numeric_property(const char* property, std::uint64_t* value);

// Gives free pages back to the system. Can take a long time.
KTL_MEM_API void release_free_memory();

// How eagerly the allocator gives pages back: 0 never, up to 10 at once. Builds of the allocator without
// these two entries exist: get then gives -1.0, and set does nothing.
KTL_MEM_API double get_memory_release_rate();
KTL_MEM_API void set_memory_release_rate(double rate);

// Writes a debug line of module "MEM" (services.h). The text is a printf format without arguments: write a
// per cent sign as %%.
KTL_MEM_API void print_message(const std::string& text);

}  // namespace MEM::MALLOC_EXTENSION
